// outcome: what a command of a host came to, for people and for programs
// no format of its own on disk; the JSON object is told in docs/JSON.md
// invariant: the first failure decides word and exit code
#include "outcome.h"

#include "json_text.h"

namespace kmhost {

using nlohmann::json;

namespace {

json message_json(const message& one) {
    json object = {{"id", one.id}, {"severity", severity_word(one.level)}, {"text", one.text}};
    if (!one.place.empty()) {
        object["place"] = one.place;
        object["shown"] = one.shown;
    }
    return object;
}

json package_json(const package_facts& one) {
    return {
        {"name", one.name}, {"version", one.version}, {"state", one.state}, {"result", one.result}};
}

json common_json(const outcome& result) {
    json object = json::object();
    object["outcome"] = result.word;
    object["exit_code"] = result.exit;
    object["messages"] = json::array();
    for (const auto& one : result.messages)
        object["messages"].push_back(message_json(one));
    if (result.package)
        object["package"] = package_json(*result.package);
    return object;
}

severity severity_of(const std::string& word) {
    if (word == "error")
        return severity::error;
    return word == "warning" ? severity::warning : severity::info;
}

} // namespace

const char* severity_word(severity level) {
    switch (level) {
    case severity::error:
        return "error";
    case severity::warning:
        return "warning";
    default:
        return "info";
    }
}

void outcome::info(const std::string& id, const std::string& line) {
    messages.push_back({id, severity::info, line});
}

void outcome::warn(const std::string& id, const std::string& line) {
    messages.push_back({id, severity::warning, line});
}

void outcome::fail(exit_code code, const std::string& id, const std::string& line,
                   const char* with_word) {
    messages.push_back({id, severity::error, line});
    if (failed())
        return;
    exit = code;
    word = with_word;
}

std::string to_json_text(const outcome& result, const std::string& command) {
    json object = common_json(result);
    object["schema"] = 1;
    object["command"] = command;
    if (result.data.is_object())
        object.update(result.data.begin(), result.data.end());
    return json_text(object, 2);
}

std::string to_wire(const outcome& result) {
    json object = common_json(result);
    object["data"] = result.data;
    object["text"] = result.text;
    return json_text(object);
}

bool from_wire(const std::string& line, outcome& result) {
    json object = json_of(line);
    if (!object.is_object() || !object.contains("outcome") || !object.contains("exit_code"))
        return false;
    result.word = object.value("outcome", "");
    result.exit = object.value("exit_code", static_cast<int>(exit_failed));
    result.text = object.value("text", "");
    result.data = std::move(object["data"]);
    result.messages.clear();
    for (const auto& one : object.value("messages", json::array()))
        result.messages.push_back({one.value("id", ""), severity_of(one.value("severity", "")),
                                   one.value("text", ""), one.value("place", ""),
                                   one.value("shown", "")});
    if (object.contains("package")) {
        const auto& one = object["package"];
        result.package = package_facts{one.value("name", ""), one.value("version", ""),
                                       one.value("state", ""), one.value("result", "")};
    }
    return true;
}

} // namespace kmhost
