// json_text: JSON to text and back
// format: RFC 8259
// invariant: neither writing nor reading throws
#include "json_text.h"

#include <nlohmann/json.hpp>

namespace kmhost {

std::string json_text(const nlohmann::json& object, int indent) {
    return object.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json json_of(const std::string& text) {
    return nlohmann::json::parse(text, nullptr, false);
}

} // namespace kmhost
