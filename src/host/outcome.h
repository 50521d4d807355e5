// outcome: what a command of a host came to, for people and for programs
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace kmhost {

// Exit codes that a script can trust. Warnings are no failure: they end in `done`.
enum exit_code : int {
    exit_done = 0,      // done, or nothing was to do
    exit_failed = 1,    // tried and failed; the messages name what and why
    exit_usage = 2,     // the command line is wrong
    exit_not_found = 3, // no such package, file or setting
    exit_reboot = 4,    // done, but a reboot is needed; only when it was asked for
    exit_refused = 5,   // the state of the package does not allow it
    exit_invalid = 6,   // the package file is no package file, or a damaged one
    exit_busy = 10      // another process holds the state, or the run was cut: try again
};

enum class severity { info, warning, error };

// One line for people. `id` is the number of a catalogue message ("ZNPSE0199") or a word of the
// host's own ("busy"), so that a program can tell messages apart without reading their text.
struct message {
    std::string id;
    severity level = severity::info;
    std::string text;
    // Of faults in a text: "file:line:column", and the line with a mark under the place.
    std::string place = {};
    std::string shown = {};
};

struct package_facts {
    std::string name;
    std::string version;
    std::string state;  // the five letters, "" if the package is unknown
    std::string result; // text of the result of the last operation
};

// What a command came to. `word` is one of "done", "nothing", "failed", "refused", "pending".
// `data` holds further members of the JSON object (an object or null), `text` what a person gets on
// standard output; both tell the same.
struct outcome {
    std::string word = "done";
    int exit = exit_done;
    std::vector<message> messages;
    std::optional<package_facts> package;
    nlohmann::json data;
    std::string text;

    void info(const std::string& id, const std::string& text);
    void warn(const std::string& id, const std::string& text);
    // Adds an error and makes this a failure with the given word and code. The first call decides
    // them: what fails afterwards is a consequence.
    void fail(exit_code code, const std::string& id, const std::string& text,
              const char* with_word = "failed");
    bool failed() const { return exit != exit_done && exit != exit_reboot; }
};

const char* severity_word(severity level);

// The JSON object of `result`: schema, command, outcome, exit_code, messages, and package and the
// members of `data` where there are any. Bytes that are no UTF-8 become U+FFFD.
std::string to_json_text(const outcome& result, const std::string& command);

// The form in which a worker process hands its outcome to its parent, and back. `from_wire` is
// false if `line` is not such a form.
std::string to_wire(const outcome& result);
bool from_wire(const std::string& line, outcome& result);

} // namespace kmhost
