// intent: what a command is about to do, so that a cut one is known
// format: docs/formats/intent.md
// invariant: an intent stands before the first change and goes behind the last
#include "intent.h"

#include "durable.h"
#include "json_text.h"
#include "km_object.h"
#include "kill_point.h"
#include "location.h"
#include "package.h"
#include "source_note.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string directory() { return setting("working_dir") + "/intent"; }
std::string file_of(const package_id& id) { return directory() + "/" + id.text(); }

std::optional<intent> read(const fs::path& path) {
    if (path.filename().string().find(".km~") != std::string::npos)
        return std::nullopt; // half of one that was being replaced
    std::ifstream in(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    const json object = json_of(text);
    if (!object.is_object() || !object.contains("command"))
        return std::nullopt;
    intent one;
    one.command = object.value("command", "");
    one.id = parse_id(path.filename().string());
    one.file = object.value("file", "");
    one.mode = object.value("mode", 0U);
    one.since = object.value("since", 0L);
    one.run = object.value("run", "");
    one.message = object.value("message", "");
    for (const auto& text_of : object.value("definitions", json::array()))
        if (text_of.is_string())
            one.definitions.push_back(text_of.get<std::string>());
    return one;
}

// A cut run goes on under its own id, unless it was cut behind its report.
std::string run_of(const intent& what) {
    if (!what.run.empty())
        return what.run;
    const auto cut = intent_of(what.id);
    return cut && cut->command == what.command && cut->message.empty() && !cut->run.empty()
               ? cut->run
               : new_run_id();
}

} // namespace

std::string new_run_id() {
    std::ifstream in("/proc/sys/kernel/random/uuid");
    std::string id;
    if (std::getline(in, id) && !id.empty())
        return id;
    std::random_device random;
    for (int i = 0; i < 4; ++i)
        id += (i ? "-" : "") + std::to_string(random());
    return id;
}

namespace {

std::string coded(const intent& what) {
    json object = {{"command", what.command},
                   {"file", what.file},
                   {"definitions", what.definitions},
                   {"mode", what.mode},
                   {"since", what.since ? what.since : static_cast<long>(std::time(nullptr))},
                   {"run", run_of(what)}};
    if (!what.message.empty())
        object["message"] = what.message;
    return json_text(object) + "\n";
}

// What goes before its writing: the text.
std::string prepare(const intent& what) {
    std::string text = coded(what);
    km::make_directories_durably(km::pathname(directory().c_str()));
    km::expect_leftovers(intent_of(what.id).has_value());
    return text;
}

// 0, or errno.
int replace(const std::string& path, const std::string& text) {
    const auto write = [&text](int out) { return km::write_fully(out, text.data(), text.size()); };
    return km::replace_durably(km::pathname(path.c_str()), 0600, write) ? 0 : errno;
}

bool has_come(const std::string& path, int error, outcome& result) {
    if (!error) {
        KM_KILL_POINT("intent.after_write");
        return true;
    }
    result.fail(exit_failed, "intent",
                path + " cannot be written: " + std::strerror(error) + ". Nothing was changed.");
    return false;
}

} // namespace

begun_intent::begun_intent(const intent& what)
    : path_(file_of(what.id)),
      writing_([path = path_, text = prepare(what)] { return replace(path, text); }) {}

bool begun_intent::stands(outcome& result) { return has_come(path_, writing_.result(), result); }

bool write_intent(const intent& what, outcome& result) {
    const std::string path = file_of(what.id);
    return has_come(path, replace(path, prepare(what)), result);
}

void drop_intent(const package_id& id) {
    KM_KILL_POINT("intent.before_drop");
    ::unlink(file_of(id).c_str());
}

std::vector<intent> read_intents() {
    std::vector<intent> all;
    std::error_code error;
    for (const auto& one : fs::directory_iterator(directory(), error))
        if (auto what = read(one.path()))
            all.push_back(*what);
    return all;
}

std::optional<intent> intent_of(const package_id& id) { return read(file_of(id)); }

void put_back_intent(const package_id& id, const std::optional<intent>& before) {
    outcome ignored; // the refusal is what is told
    if (!before || !write_intent(*before, ignored))
        drop_intent(id);
}

namespace {

// Versions of one name hang together while one takes the place of others, or gives it back.
bool concerns_all_versions(const intent& what) {
    return what.command == "upgrade" || what.command == "undo";
}

bool is_in_the_way(const intent& cut, const intent& wanted) {
    if (cut.id.name != wanted.id.name)
        return false;
    if (cut.id.version != wanted.id.version)
        return concerns_all_versions(cut) || concerns_all_versions(wanted);
    constexpr unsigned ways = ~static_cast<unsigned>(km::m_force | km::m_during_reboot);
    return cut.command != wanted.command || (cut.mode & ways) != (wanted.mode & ways) ||
           cut.definitions != wanted.definitions;
}

std::optional<intent> cut_in_the_way(const intent& wanted) {
    for (const auto& cut : read_intents())
        if (is_in_the_way(cut, wanted))
            return cut;
    return std::nullopt;
}

void tell_first(const intent& cut, outcome& result) {
    result.messages.insert(result.messages.begin(), {"cut", severity::warning, cut_words(cut)});
}

} // namespace

void tell_cut(const intent& wanted, outcome& result) {
    if (const auto cut = cut_in_the_way(wanted))
        tell_first(*cut, result);
}

bool passes_cut(const intent& wanted, outcome& result) {
    const auto cut = cut_in_the_way(wanted);
    if (!cut)
        return true;
    if (wanted.mode & km::m_force) {
        tell_first(*cut, result);
        return true;
    }
    result.fail(exit_refused, "cut",
                cut_words(*cut) + " The " + wanted.command + " of " + wanted.id.text() +
                    " is refused until then.",
                "refused");
    return false;
}

bool can_go_back(const intent& what) {
    constexpr unsigned with_backup = km::m_undoable | km::m_preferably_undoable;
    return source_of(what.id) || what.command == "upgrade" ||
           (what.command == "install" && (what.mode & with_backup));
}

std::string cut_words(const intent& what) {
    char clock[32] = "";
    const std::time_t seconds = what.since;
    std::tm local{};
    if (::localtime_r(&seconds, &local))
        std::strftime(clock, sizeof clock, "%Y-%m-%d %H:%M:%S", &local);
    return "The " + what.command + " of " + what.id.text() + ", begun at " + clock +
           ", was cut. 'kmctl resume " + what.id.text() + "' finishes it" +
           (can_go_back(what) ? ", 'kmctl resume --back " + what.id.text() + "' takes it back."
                              : ".");
}

} // namespace kmhost
