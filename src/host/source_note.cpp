// source_note: where the package of a stream comes from
// format: docs/formats/stream-source.md
// invariant: a note is whole, or is not there
#include "source_note.h"

#include "durable.h"
#include "json_text.h"
#include "location.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace kmhost {

using nlohmann::json;

namespace {
std::string directory() { return setting("working_dir") + "/source"; }
std::string file_of(const package_id& id) { return directory() + "/" + id.text(); }
} // namespace

bool write_source(const package_id& id, const source_note& note, outcome& result) {
    json states = json::object();
    for (const auto& [offset, state] : note.states)
        states[std::to_string(offset)] = state;
    const json object = {{"address", note.address},
                         {"etag", note.identity.etag},
                         {"modified", note.identity.modified},
                         {"size", note.identity.size},
                         {"sha256", note.expected},
                         {"states", states},
                         {"goes_back", note.goes_back},
                         {"accepts", note.accepts}};
    const std::string text = json_text(object) + "\n";
    km::make_directories_durably(km::pathname(directory().c_str()));
    const std::string path = file_of(id);
    const auto write = [&text](int out) { return km::write_fully(out, text.data(), text.size()); };
    if (km::replace_durably(km::pathname(path.c_str()), 0600, write))
        return true;
    result.fail(exit_failed, "source", path + " cannot be written: " + std::strerror(errno) + ".");
    return false;
}

std::optional<source_note> source_of(const package_id& id) {
    std::ifstream in(file_of(id), std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    const json object = json_of(text);
    if (!object.is_object() || !object.contains("address"))
        return std::nullopt;
    source_note note;
    note.address = object.value("address", "");
    note.identity = {object.value("etag", ""), object.value("modified", ""),
                     object.value("size", -1L)};
    note.expected = object.value("sha256", "");
    note.goes_back = object.value("goes_back", false);
    note.accepts = object.value("accepts", false);
    const json states = object.value("states", json::object());
    for (const auto& one : states.items())
        if (one.value().is_string())
            note.states[std::strtol(one.key().c_str(), nullptr, 10)] = one.value();
    return note;
}

void drop_source(const package_id& id) { ::unlink(file_of(id).c_str()); }

} // namespace kmhost
