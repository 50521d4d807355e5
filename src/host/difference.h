// difference: how an object on the machine differs from its definition
#pragma once

#include "object.h"

#include <string>
#include <vector>

namespace kmhost {

// "missing", "kind", "content", "mode", "owner", "link target"; empty if nothing differs.
std::vector<std::string> differences_of(km::cm_object& object);

} // namespace kmhost
