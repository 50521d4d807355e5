// object_words: what an object is, in words and as JSON
// no format
// invariant: nothing is changed
#include "object_words.h"

#include "text_object.h"

namespace kmhost {

bool stands_to_go(km::cm_object& object) {
    const bool is_text = dynamic_cast<km::text_object*>(&object);
    return object.exists(km::p_do) && (!is_text || object.is_identical(km::p_do));
}

const char* restoring_action(km::cm_object& object) {
    const auto* text = dynamic_cast<km::text_object*>(&object);
    return text && text->absent ? "remove" : "bring back";
}

nlohmann::json object_keys(km::cm_object& object) {
    auto* text = dynamic_cast<km::text_object*>(&object);
    if (!text)
        return {{"path", object.get_name().mbcs_str()}};
    return {{"path", text->path_bytes()}, {"kind", text->kind()}, {"text", text->shown()}};
}

std::string path_of(km::cm_object& object) {
    const auto* text = dynamic_cast<km::text_object*>(&object);
    return text ? text->path_bytes() : object.get_name().mbcs_str();
}

} // namespace kmhost
