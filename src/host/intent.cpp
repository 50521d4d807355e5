// intent: what a command is about to do, so that a cut one is known
// format: docs/formats/intent.md
// invariant: an intent stands before the first change and goes behind the last
#include "intent.h"

#include "durable.h"
#include "file.h"
#include "kill_point.h"
#include "location.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace kmhost {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string directory() { return setting("working_dir") + "/intent"; }
std::string file_of(const package_id& id) { return directory() + "/" + id.text(); }

std::optional<intent> read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    const json object = json::parse(text, nullptr, false);
    if (!object.is_object() || !object.contains("command"))
        return std::nullopt;
    intent one;
    one.command = object.value("command", "");
    one.id = parse_id(path.filename().string());
    one.file = object.value("file", "");
    one.mode = object.value("mode", 0U);
    one.since = object.value("since", 0L);
    for (const auto& text_of : object.value("definitions", json::array()))
        if (text_of.is_string())
            one.definitions.push_back(text_of.get<std::string>());
    return one;
}

} // namespace

bool write_intent(const intent& what, outcome& result) {
    const json object = {{"command", what.command},
                         {"file", what.file},
                         {"definitions", what.definitions},
                         {"mode", what.mode},
                         {"since", static_cast<long>(std::time(nullptr))}};
    const std::string text = object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    km::file(km::pathname(directory().c_str())).mk_tree();
    const std::string path = file_of(what.id);
    const auto write = [&text](int out) { return km::write_fully(out, text.data(), text.size()); };
    if (km::replace_durably(km::pathname(path.c_str()), 0600, write)) {
        KM_KILL_POINT("intent.after_write");
        return true;
    }
    result.fail(exit_failed, "intent",
                path + " cannot be written: " + std::strerror(errno) + ". Nothing was changed.");
    return false;
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

std::string cut_words(const intent& what) {
    char clock[32] = "";
    const std::time_t seconds = what.since;
    std::tm local{};
    if (::localtime_r(&seconds, &local))
        std::strftime(clock, sizeof clock, "%Y-%m-%d %H:%M:%S", &local);
    return "The " + what.command + " of " + what.id.text() + ", begun at " + clock +
           ", was cut. 'kmctl resume " + what.id.text() + "' finishes it.";
}

} // namespace kmhost
