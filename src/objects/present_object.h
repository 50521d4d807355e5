// present_object: what stands at a path, as an object that can bring it back
#pragma once

#include "km_object.h"

namespace km {

// A new object of the class of what stands at the path of `of` (file, directory or link, which need
// not be the class of `of`), with its present metadata; the caller's. Null with a message and the
// result of `of` where nothing, or something of another kind, stands there.
km_object* object_of_present(km_object& of);

// Whether what stands at the path of `of` can be read, whatever its class.
cm_result can_read_present(km_object& of);

} // namespace km
