// codable: base of every object that can be coded
// format: docs/formats/coded-object.md
// invariant: the base never touches anything but its version
#include "codable.h"

#include <cstdint>

namespace km {

codable::~codable() = default;

std::uint32_t codable::hash_code() const {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this));
}

bool codable::operator==(const codable&) const { return true; }

long codable::codable_version() const { return version; }

} // namespace km
