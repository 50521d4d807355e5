// report_file: reports as lines of a file that is rotated
// format: docs/formats/report-file.md
// invariant: a line is in the journal before its first byte is in the file, and its key stays there
#include "durable.h"
#include "file.h"
#include "json_text.h"
#include "report_channels.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace kmhost {

using nlohmann::json;

namespace {

constexpr size_t most_recent_keys = 64, most_struck_keys = 1024;
constexpr size_t mark_size = 2; // "0" or "1", and a line feed

// The line that was written last, or is being written: what tells a repeat behind a crash, and
// what its torn line is completed from.
struct journal {
    std::string key;
    std::string path;
    unsigned long inode = 0;
    long offset = 0;
    std::string line;
    bool is_written = false;         // the line is in the file; not known behind a power cut
    std::vector<std::string> recent; // keys written before
    std::vector<std::string> struck; // of them, those whose process died or failed behind the line
};

std::string journal_path(const report_settings& settings) {
    return settings.working_directory + "/report.journal";
}

std::vector<std::string> texts_of(const json& from, const char* name) {
    std::vector<std::string> all;
    for (const auto& one : from.value(name, json::array()))
        if (one.is_string())
            all.push_back(one.get<std::string>());
    return all;
}

journal read_journal(const report_settings& settings) {
    std::ifstream in(journal_path(settings), std::ios::binary);
    const std::string whole(std::istreambuf_iterator<char>(in), {});
    const size_t begin = whole.find('\n') + 1, end = whole.find('\n', begin);
    journal found;
    if (begin != mark_size || end == std::string::npos)
        return found;
    const json head = json_of(whole.substr(begin, end - begin));
    if (!head.is_object())
        return found;
    found.is_written = whole.front() == '1';
    const auto text = [&head](const char* name) {
        const auto at = head.find(name);
        return at != head.end() && at->is_string() ? at->get<std::string>() : std::string();
    };
    const auto number = [&head](const char* name) {
        const auto at = head.find(name);
        return at != head.end() && at->is_number_integer() ? at->get<long>() : 0L;
    };
    found.key = text("key");
    found.path = text("file");
    found.inode = static_cast<unsigned long>(number("inode"));
    found.offset = std::max(0L, number("offset"));
    found.line = whole.substr(end + 1);
    found.recent = texts_of(head, "recent");
    found.struck = texts_of(head, "struck");
    return found;
}

bool write_journal(const journal& what, const report_settings& settings) {
    const json head = {{"key", what.key},       {"file", what.path},     {"inode", what.inode},
                       {"offset", what.offset}, {"recent", what.recent}, {"struck", what.struck}};
    const std::string whole = "0\n" + json_text(head) + "\n" + what.line;
    const auto write = [&whole](int out) {
        return km::write_fully(out, whole.data(), whole.size());
    };
    return km::replace_durably(km::pathname(journal_path(settings).c_str()), 0600, write);
}

// Tells that the line is in the file, also where somebody takes that away later. Not flushed:
// behind a power cut the file itself is asked.
void mark_written(const report_settings& settings) {
    const int journal = ::open(journal_path(settings).c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    if (journal < 0)
        return;
    static_cast<void>(::pwrite(journal, "1", 1, 0) == 1);
    ::close(journal);
}

// A plain file, open and locked among processes; other states may write to it as well.
class locked_file {
  public:
    ~locked_file() { close(); }
    locked_file() = default;
    locked_file(const locked_file&) = delete;
    locked_file& operator=(const locked_file&) = delete;

    // False with errno.
    bool open(const std::string& path, long seconds) {
        constexpr timespec pause{0, 20'000'000};
        const time_t end = ::time(nullptr) + seconds;
        for (;;) {
            if (!open_plain(path))
                return false;
            if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) {
                if (is_still(path))
                    return true;
                continue; // rotated meanwhile
            }
            if (errno != EWOULDBLOCK || ::time(nullptr) > end)
                return false;
            ::nanosleep(&pause, nullptr);
        }
    }
    int descriptor() const { return descriptor_; }
    long size() const { return about_.st_size; }
    unsigned long inode() const { return about_.st_ino; }
    std::string read(long offset, size_t count) const {
        std::string bytes(count, '\0');
        const ssize_t got = ::pread(descriptor_, bytes.data(), count, offset);
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    bool write(const std::string& bytes, long offset) const {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t put = ::pwrite(descriptor_, bytes.data() + at, bytes.size() - at,
                                         offset + static_cast<long>(at));
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0)
                return false;
            at += static_cast<size_t>(put);
        }
        return km::sync_descriptor(descriptor_);
    }

  private:
    bool open_plain(const std::string& path) {
        close();
        constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        descriptor_ = ::open(path.c_str(), flags, 0640);
        if (descriptor_ < 0 || ::fstat(descriptor_, &about_) != 0)
            return false;
        if (S_ISREG(about_.st_mode))
            return true;
        errno = EINVAL;
        return false;
    }
    bool is_still(const std::string& path) {
        struct stat now {};
        return ::fstat(descriptor_, &about_) == 0 && ::lstat(path.c_str(), &now) == 0 &&
               now.st_ino == about_.st_ino && now.st_dev == about_.st_dev;
    }
    void close() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }
    int descriptor_ = -1;
    struct stat about_ {};
};

std::string copy_of(const std::string& path, long number) {
    return path + "." + std::to_string(number);
}

// Up to the first number that is free, so that what a crash left half done drops no copy.
bool rotate(const std::string& path, long copies) {
    if (copies == 0)
        return ::unlink(path.c_str()) == 0;
    long free_one = 1;
    while (free_one < copies && ::access(copy_of(path, free_one).c_str(), F_OK) == 0)
        ++free_one;
    for (long i = free_one; i > 1; --i)
        if (!km::rename_file(copy_of(path, i - 1).c_str(), copy_of(path, i).c_str()))
            return false;
    return km::rename_file(path.c_str(), copy_of(path, 1).c_str()) &&
           km::sync_directory(km::pathname(path.c_str()).get_parent());
}

// Writes the line behind all that is there; a last line that somebody left open is ended first.
bool place(journal& what, const report_settings& settings) {
    locked_file file;
    if (!file.open(what.path, settings.timeout))
        return false;
    const long most = settings.file_max_size;
    if (most > 0 && file.size() > 0 && file.size() + static_cast<long>(what.line.size()) > most) {
        if (!rotate(what.path, settings.file_copies) || !file.open(what.path, settings.timeout))
            return false;
    }
    what.inode = file.inode();
    what.offset = file.size();
    if (file.size() > 0 && file.read(file.size() - 1, 1) != "\n") {
        if (!file.write("\n", what.offset))
            return false;
        ++what.offset;
    }
    // A new file must outlive a power cut: another one in its place would pass for one that
    // somebody made behind the line.
    if (file.size() == 0 && !km::sync_directory(km::pathname(what.path.c_str()).get_parent()))
        return false;
    if (!write_journal(what, settings) || !file.write(what.line, what.offset))
        return false;
    mark_written(settings);
    return true;
}

// Whether the file that the line went to still is under its name and as long as it was then.
bool is_same_file(const journal& what, const locked_file& now) {
    return now.inode() == what.inode && now.size() >= what.offset;
}

// Sees to it that the line of the journal stands in the file, once. What somebody took away, or
// shortened, had it.
bool settle(journal& what, const report_settings& settings) {
    if (what.is_written)
        return true;
    {
        locked_file file;
        if (!file.open(what.path, settings.timeout))
            return false;
        if (!is_same_file(what, file))
            return true;
        const std::string there = file.read(what.offset, what.line.size());
        if (there == what.line) {
            mark_written(settings);
            return true;
        }
        const bool is_torn = what.line.compare(0, there.size(), there) == 0 &&
                             what.offset + static_cast<long>(there.size()) == file.size();
        if (is_torn) {
            if (!file.write(what.line.substr(there.size()), file.size()))
                return false;
            mark_written(settings);
            return true;
        }
    }
    return place(what, settings);
}

void keep_last(std::vector<std::string>& keys, size_t most) {
    if (keys.size() > most)
        keys.erase(keys.begin(), keys.end() - static_cast<long>(most));
}

// A report that this process has seen through to its end.
std::string& seen_through() {
    static std::string key;
    return key;
}

bool holds(const std::vector<std::string>& keys, const std::string& key) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

std::string line_of(const report_fields& report, const report_settings& settings) {
    if (settings.file_json)
        return report_json(report) + "\n";
    const char* standard = "%exec_time% %operation_type% %name%^%version% %state%: %message%";
    return report_text(report, settings.file_template.empty() ? standard : settings.file_template);
}

bool deliver(const report_fields& report, const report_settings& settings) {
    journal was = read_journal(settings);
    if (holds(was.recent, report.key) || holds(was.struck, report.key))
        return true;
    // In front of the look at the line before: somebody may have taken its directory away.
    km::make_directories_durably(km::pathname(settings.file.c_str()).get_parent());
    if (!was.key.empty()) {
        const bool is_settled = settle(was, settings);
        if (was.key == report.key || (!is_settled && was.path == settings.file))
            return is_settled;
        // Where the former file is out of reach its line is written anew.
        if (is_settled)
            (was.key == seen_through() ? was.recent : was.struck).push_back(was.key);
        keep_last(was.recent, most_recent_keys);
        keep_last(was.struck, most_struck_keys);
    }
    journal next = was;
    next.key = report.key;
    next.path = settings.file;
    next.line = line_of(report, settings);
    next.is_written = false;
    return place(next, settings);
}

} // namespace

delivery deliver_to_file(const report_fields& report, const report_settings& settings,
                         std::string& why) {
    if (settings.file.empty())
        return delivery::not_set_up;
    if (settings.file.front() != '/') {
        why = "report_file is no absolute path: " + settings.file;
        return delivery::failed;
    }
    errno = 0;
    if (deliver(report, settings)) {
        seen_through() = report.key;
        return delivery::done;
    }
    why = settings.file + " cannot be written: " +
          (errno == EWOULDBLOCK ? "another process holds it" : std::strerror(errno));
    return delivery::failed;
}

} // namespace kmhost
