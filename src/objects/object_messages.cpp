// object_messages: what the objects tell people
// no format
// invariant: every failure of an object names the path and the reason
#include "object_messages.h"

#include "base/msg_supp.h"
#include "package.h"

#include <cstring>

namespace km {

const char* const object_catalog[] = {
    "kmobjects",
    "E Cannot %1$s %2$s: %3$s.\n",
    "E Not enough room for the package in %1$s: %2$s needed, %3$s free.\n",
    "E The data of %1$s in the package do not have the digest that the package tells.\n",
    "E The data of %1$s are not in the package.\n",
    "E The package ends, or is damaged, inside the data of %1$s.\n",
    "E The path %1$s is not absolute, or holds a variable that is not defined. Give its value with "
    "-D NAME=VALUE.\n",
    "E %1$s is a directory, and the package brings something else of that name.\n",
    "E %1$s changed while it was read.\n",
    "E %1$s is neither a file nor a directory nor a link, and cannot be packed.\n",
    "E %1$s is not what the package describes, and its data are not in the package.\n",
    "I %1$s stays: it is not empty.\n",
    "E %1$s was not prepared.\n",
    "W %1$s is newer than what the package brings, and was left as it is.\n",
    "I %1$s was changed after its install, and stays.\n",
    "E Near line %1$s: '%3$s' cannot be the %2$s: a mode is up to four octal digits, an owner or "
    "group a number or a name that this machine knows.\n",
    "E %1$s has no source: the definition must tell where its content comes from.\n",
    "W %1$s was changed by somebody and stays as it is; what the package brings is in %2$s.\n",
    "E %1$s cannot become a second name of %2$s: that is no file, or is not there.\n",
    "E The program %1$s cannot be run: %2$s.\n",
    "E The program %1$s %2$s.\n",
    "E Near line %1$s: in the %2$s of a program, %3$s.\n",
    "E %1$s cannot be edited: %2$s.\n",
    "E The definition of a text for %1$s cannot be carried out: %2$s.\n",
    "I Nothing was taken out of %1$s: %2$s does not stand there any more.\n",
    "I In %1$s, %2$s stays: it stood there before the package.\n",
    "I In %1$s, %2$s stays: other packages count on it.\n",
};

static_assert(std::size(object_catalog) == object_messages_end);

void tell(cm_package* package, object_message key, const std::string& path,
          const std::string& reason, const std::string& more) {
    if (package && package->messages)
        package->messages->add(object_catalog, key, path.c_str(), reason.c_str(), more.c_str());
}

void tell_errno(cm_package* package, const char* what, const std::string& path, int error) {
    tell(package, om_failed, what, path, std::strerror(error));
}

} // namespace km
