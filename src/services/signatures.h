// signatures: signatures and build number of package files
#pragma once

namespace km {

// Ended by null, newest first. The first is written; all are accepted. SPB: a block, tree and data.
extern const char* const spb_signatures[];
// SP: the tree alone.
extern const char* const sp_signatures[];

// The last of spb_signatures: packages of that age code one field differently.
const char* oldest_spb_signature();

} // namespace km
