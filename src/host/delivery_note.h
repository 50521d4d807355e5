// delivery_note: how far the delivery of a report to a side that cannot be asked has come
//
// A mail server and a system log know no keys. So it is noted before the last step of a delivery
// that it is about to happen, and behind it that it did. Whoever finds "begun" comes behind a
// process that died in between: nobody can know whether the other side took the report. That word
// is written by one call over the word "ready", which a call of its own put there: nothing that
// touches the disk, and could fail or be cut there, stands between the word and the step. The page
// of the format: docs/formats/delivery-notes.md.
#pragma once

#include <string>

namespace kmhost {

class delivery_note {
  public:
    enum class progress { none, begun, taken };

    // "deliveries/KEY.CHANNEL" in the working directory.
    delivery_note(const std::string& working_directory, const std::string& key,
                  const char* channel);

    // What a former process left; a file that makes no sense counts as begun, "ready" as none.
    progress read() const;
    // Each is on the disk when it returns. False, with errno: not noted. The first goes in front of
    // the others, which change its word in place.
    bool prepare() const;
    bool begin() const { return change("begun\n"); }
    bool take() const { return change("taken\n"); }
    // The other side did not take it, for sure.
    void withdraw() const;

    // Of all channels: the report is delivered, or is no more.
    static void forget(const std::string& working_directory, const std::string& key);

  private:
    bool change(const char* word) const;

    std::string file_;
};

} // namespace kmhost
