// intent: what a command is about to do, so that a cut one is known
//
// Written, and flushed, before the first change; removed when the command has ended. An intent that
// is found tells that a command was killed.
#pragma once

#include "background_thread.h"
#include "outcome.h"
#include "words.h"

#include <optional>
#include <string>
#include <vector>

namespace kmhost {

struct intent {
    std::string command; // "install", "remove", "commit" ...
    package_id id;
    std::string file;                     // package file, absolute; "" for none
    std::vector<std::string> definitions; // NAME=VALUE
    unsigned mode = 0;
    long since = 0; // seconds
    // One operation, from its begin to its end, however often it is cut: key of its report. Empty
    // where an intent is to be written: that of the cut run which it goes on with, or a new one.
    std::string run = {};
    std::string message = {}; // file of its report, from just before that is written on
};

// A key of its own: 36 characters, digits, letters and '-'.
std::string new_run_id();

// False: `result` says why it cannot be written.
bool write_intent(const intent& what, outcome& result);

// The same, with something else to do while the disk is busy.
class begun_intent {
  public:
    explicit begun_intent(const intent& what);
    // Waits until it stands; false as above.
    bool stands(outcome& result);

  private:
    std::string path_;
    km::meanwhile writing_;
};

void drop_intent(const package_id& id);
std::vector<intent> read_intents();
std::optional<intent> intent_of(const package_id& id);

// The command was refused, and has changed nothing: what was cut in front of it still waits.
void put_back_intent(const package_id& id, const std::optional<intent>& before);

// Whether the command may begin as far as cut ones are concerned. Another command, or the same with
// other options or values, waits until what was cut is finished: else nobody could go on with that.
// `result` then refuses; by force it is told only, in front of all else.
bool passes_cut(const intent& wanted, outcome& result);

// Names the cut command in the first message, if it is another one; for what changes nothing.
void tell_cut(const intent& wanted, outcome& result);

// Whether it can be taken back: it was begun with a backup, or its package comes from a server.
bool can_go_back(const intent& what);

// "The install of NAME^VERSION, begun at TIME, was cut ...".
std::string cut_words(const intent& what);

} // namespace kmhost
