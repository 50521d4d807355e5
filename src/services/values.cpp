// values: numbers as codable objects
// format: docs/formats/coded-object.md
// invariant: equal numbers of one class are equal objects with equal hashes
#include "values.h"

namespace km {

bool long_value::operator==(const codable& other) const {
    const auto* one = dynamic_cast<const long_value*>(&other);
    return one && one->value_ == value_;
}

bool unsInt_value::operator==(const codable& other) const {
    const auto* one = dynamic_cast<const unsInt_value*>(&other);
    return one && one->value_ == value_;
}

} // namespace km
