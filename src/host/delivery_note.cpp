// delivery_note: how far the delivery of a report to a side that cannot be asked has come
// format: docs/formats/delivery-notes.md
// invariant: a note is on the disk before the step that it tells of, and nothing comes in between
#include "delivery_note.h"

#include "durable.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr size_t word_size = 6; // of all three, with the line feed

constexpr const char* channels[] = {"mail", "spool", "syslog"};

std::string directory_in(const std::string& working_directory) {
    return working_directory + "/deliveries";
}

} // namespace

delivery_note::delivery_note(const std::string& working_directory, const std::string& key,
                             const char* channel)
    : file_(directory_in(working_directory) + "/" + key + "." + channel) {}

delivery_note::progress delivery_note::read() const {
    std::ifstream in(file_, std::ios::binary);
    if (!in)
        return ::access(file_.c_str(), F_OK) == 0 ? progress::begun : progress::none;
    std::string word;
    std::getline(in, word);
    if (word == "ready")
        return progress::none;
    return word == "taken" ? progress::taken : progress::begun;
}

bool delivery_note::prepare() const {
    const km::pathname file(file_.c_str());
    const std::string directory = file_.substr(0, file_.rfind('/'));
    if (::access(directory.c_str(), F_OK) != 0 &&
        !km::make_directories_durably(km::pathname(directory.c_str())))
        return false;
    return km::replace_durably(file, 0600,
                               [](int out) { return km::write_fully(out, "ready\n", word_size); });
}

bool delivery_note::change(const char* word) const {
    const int note = ::open(file_.c_str(), O_WRONLY | O_DSYNC | O_CLOEXEC | O_NOFOLLOW);
    if (note < 0)
        return false;
    const bool changed = ::pwrite(note, word, word_size, 0) == static_cast<ssize_t>(word_size);
    const int error = errno;
    ::close(note);
    errno = error;
    return changed;
}

void delivery_note::withdraw() const { ::unlink(file_.c_str()); }

void delivery_note::forget(const std::string& working_directory, const std::string& key) {
    for (const char* channel : channels)
        delivery_note(working_directory, key, channel).withdraw();
}

} // namespace kmhost
