// signatures: signatures and build number of package files
// format: docs/formats/package-file.md
// invariant: the newest stands first
#include "signatures.h"

namespace km {

const char* const spb_signatures[] = {
    "OMBREL Software Package v4.2 - SPB",
    "OMBREL Software Package v4.1 - SPB",
    "OMBREL Software Package v4.0 - SPB",
    nullptr,
};

const char* const sp_signatures[] = {
    "OMBREL Software Package v4.2 - SP",
    "OMBREL Software Package v4.1 - SP",
    "OMBREL Software Package v4.0 - SP",
    nullptr,
};

const char* oldest_spb_signature() { return spb_signatures[2]; }

} // namespace km
