// json_text: JSON to text and back
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace kmhost {

// The text of an object, on one line, or indented by so many blanks. Bytes that are no UTF-8 become
// U+FFFD.
std::string json_text(const nlohmann::json& object, int indent = -1);

// What a text holds; `is_discarded()` if that is no JSON.
nlohmann::json json_of(const std::string& text);

} // namespace kmhost
