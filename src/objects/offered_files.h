// offered_files: what the installed versions of a package brought
#pragma once

#include <set>
#include <string>

namespace km {

class cm_package;

// Digests of the files of that path which installed versions of the package brought, as their
// profiles tell; the package itself is one of them where it is installed. For a backup package
// those of the package that it undoes. Empty where nothing is known. Valid until the next call.
const std::set<std::string>& offered_digests(const cm_package& package, const std::string& path);

} // namespace km
