// looks_ahead: files that a removal comes to next are looked at by a second processor
//
// A removal looks at each file, holds it so that its blocks can go later, and unlinks it. The first
// two can be done for some files that follow while the walk unlinks one. Between a look and its use
// nothing of the package runs that could change a file: a command that is neither a file nor a
// directory ends the run of files that are looked at.
#pragma once

#include <sys/stat.h>

namespace km {

class cm_package;
class km_file;

struct ahead_look {
    struct stat about {};
    int held = -1; // descriptor of hold_for_release(), the taker's
};

constexpr long look_serves_for = 50; // milliseconds

// The removal of `package`, or its check, has come to `file`. True: `found` tells what stood there
// a moment ago. False: nobody looked, or what was seen needs to be seen by the caller itself.
// `works`: it is not the check, and the files are held where that pays. `serves_for`: a look that
// is older than so many milliseconds does not serve.
bool take_look_ahead(const cm_package& package, const km_file& file, bool works, ahead_look& found,
                     long serves_for = look_serves_for);

} // namespace km
