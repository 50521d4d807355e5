// message_files: the messages that wait below the working directory, to look at and to deliver
// format: docs/formats/status-files.md
// invariant: looking changes nothing, and waits for nothing
#include "message_files.h"

#include "codec.h"
#include "durable.h"
#include "decode_channel.h"
#include "file.h"
#include "file_channel.h"
#include "filter_channel.h"
#include "library_loader.h"
#include "location.h"
#include "message.h"
#include "report.h"
#include "report_kinds.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;

namespace {

constexpr const char* prefix = "MS";

std::string directory() { return setting("working_dir") + "/message"; }

bool ends_in(const std::string& name, const char* end) { return name.ends_with(end); }

bool is_message_name(const std::string& name) {
    return name.starts_with(prefix) && !ends_in(name, ".bak") && !ends_in(name, ".wrn") &&
           !ends_in(name, "_msg_statuses");
}

// The word on the disk is newer than the one in the message.
void take_progress(const km::ZNPMessage& message, km::report& report) {
    constexpr size_t word_size = 4;
    const std::string path = message.get_status_directory().mbcs_str() + std::string("/0");
    struct stat about {};
    if (::lstat(path.c_str(), &about) != 0 || !S_ISREG(about.st_mode) || about.st_size != word_size)
        return;
    unsigned char bytes[word_size] = {};
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(bytes), word_size))
        return;
    std::uint32_t word = 0;
    for (size_t i = 0; i < word_size; ++i)
        word |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
    report.status = static_cast<std::int32_t>(word);
}

void drop_data_of(const km::report& report) {
    if (const auto* bulk = dynamic_cast<const km::bulk_report*>(&report))
        if (bulk->get_data().get_file().matches_pattern(u"BR*"))
            km::file(bulk->get_data()).remove(0);
}

} // namespace

std::vector<std::string> message_names() {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(directory(), error)) {
        const std::string name = one.path().filename().string();
        // What the listing tells; a look at each of thousands takes its time.
        if (is_message_name(name) && !one.is_symlink(error) && one.is_regular_file(error))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

unread_message why_unread(const std::string& name) {
    struct stat about {};
    const std::string path = directory() + "/" + name;
    if (::lstat(path.c_str(), &about) != 0 || about.st_size == 0)
        return unread_message::gone;
    return ::access(path.c_str(), R_OK) == 0 ? unread_message::strange : unread_message::forbidden;
}

bool is_named(const km::ZNPMessage& message, const std::string& name) {
    return name == message.get_path().get_file().mbcs_str();
}

km::report* report_in(const km::ZNPMessage& message) {
    const auto* policy = dynamic_cast<const km::ZNPNotificationPolicy*>(message.get_policy());
    return policy ? policy->get_report() : nullptr;
}

std::unique_ptr<km::ZNPMessage> read_message(const std::string& name) {
    constexpr int buffer_size = 8192, pushback_size = 512;
    const km::pathname path((directory() + "/" + name).c_str());
    km::decode_channel channel(
        new km::buffered_input_channel(new km::file_input_channel(path), buffer_size),
        pushback_size);
    km::decoder coder(&channel);
    km::codable* object = nullptr;
    coder.decode_object(object);
    std::unique_ptr<km::codable> owner(object);
    auto* message = dynamic_cast<km::ZNPMessage*>(object);
    if (message)
        if (auto* report = report_in(*message)) {
            drop_data_of(*report);
            take_progress(*message, *report);
        }
    if (!message || coder.get_status() != 0 || !is_named(*message, name))
        return nullptr;
    owner.release();
    return std::unique_ptr<km::ZNPMessage>(message);
}

bool put_aside(const std::string& name) {
    // Not by way of a pathname: that would take a backslash of the name for a separator.
    const std::string place = directory() + "/removed";
    km::file(km::pathname(place.c_str())).mk_tree();
    return km::rename_file((directory() + "/" + name).c_str(), (place + "/" + name).c_str()) != 0;
}

namespace {

// Each look at a file copies it. So what is large and does not begin as a message is not looked at.
bool is_large_stranger(const fs::path& path) {
    constexpr std::uintmax_t large = 1 << 20;
    constexpr size_t head_size = 256;
    std::error_code error;
    if (fs::file_size(path, error) < large || error)
        return false;
    std::string head(head_size, '\0');
    std::ifstream in(path, std::ios::binary);
    in.read(head.data(), head_size);
    return head.find(km::ZNPMessage().codable_name()) == std::string::npos;
}

// What is put aside must not go where somebody's link leads.
void free_the_place_aside() {
    std::error_code error;
    const fs::path place = directory() + "/removed";
    const auto status = fs::symlink_status(place, error);
    if (fs::exists(status) && !fs::is_directory(status))
        fs::remove(place, error);
}

} // namespace

long put_strangers_aside() {
    std::vector<std::string> strangers;
    std::error_code error;
    free_the_place_aside();
    for (const auto& one : fs::directory_iterator(directory(), error)) {
        const std::string name = one.path().filename().string();
        const auto type = one.symlink_status(error).type();
        const bool is_progress = ends_in(name, "_msg_statuses") && type == fs::file_type::directory;
        if (name.starts_with(prefix) && !is_progress &&
            (type != fs::file_type::regular || name.find('\\') != std::string::npos ||
             is_large_stranger(one.path())))
            strangers.push_back(name);
    }
    return std::count_if(strangers.begin(), strangers.end(), put_aside);
}

void remove_half_written() {
    std::vector<fs::path> left;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(directory(), error)) {
        const std::string name = one.path().filename().string();
        if (name.starts_with(".MS") && ends_in(name, ".new") &&
            !fs::exists(
                fs::symlink_status(one.path().parent_path() / name.substr(1, name.size() - 5))))
            left.push_back(one.path());
    }
    const fs::path home = setting("working_dir");
    for (const auto& place : {home, home / "notice"}) // the journal and notices
        for (const auto& one : fs::directory_iterator(place, error))
            if (const std::string name = one.path().filename().string();
                name.find(".km~") != std::string::npos &&
                (place != home || name.find("report.journal") != std::string::npos))
                left.push_back(one.path());
    for (const auto& path : left)
        fs::remove(path, error);
}

void remove_bulk_data() {
    std::vector<fs::path> left;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(setting("working_dir"), error))
        if (one.path().filename().string().starts_with("BR") &&
            fs::is_regular_file(one.symlink_status(error)))
            left.push_back(one.path());
    for (const auto& path : left)
        fs::remove(path, error);
}

bool can_decode_messages() {
    return km::library_loader::instance()->get_api(u"make_ZNPMessage") != nullptr;
}

} // namespace kmhost
