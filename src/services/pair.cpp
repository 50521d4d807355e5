// pair: key and value from one text
// format: docs/formats/coded-object.md
// invariant: key and value are stripped if they came from one text with a separator
#include "pair.h"

namespace km {

char16_t pair::separator = u'=';

void pair::set_from(const ustring& text) {
    const auto at = text.find(separator);
    if (at == ustring::npos) {
        key_ = ustring();
        value_ = text;
        return;
    }
    key_ = text.substr(0, at).strip();
    value_ = text.substr(at + 1).strip();
}

ustring pair::to_string() const {
    if (key_.empty())
        return value_;
    ustring text(key_);
    text += separator;
    text += value_;
    return text;
}

bool pair::operator==(const codable& other) const {
    const auto* one = dynamic_cast<const pair*>(&other);
    return one && key_ == one->key_ && value_ == one->value_;
}

} // namespace km
