// write_package: a package file, written beside its place
#pragma once

#include "base/msg_supp.h"
#include "outcome.h"
#include "package.h"

#include <functional>
#include <string>

namespace kmhost {

// Lets `save` write the package to a temporary file beside `output`, stamps it with its digest and
// renames it. False: `result` says why, and there is no file.
bool write_package(const std::string& output, bool stored, const km::spmessage& messages,
                   outcome& result, const std::function<km::cm_result(km::zipping_channel&)>& save);

} // namespace kmhost
