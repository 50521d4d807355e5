// booting_list: packages that wait for a reboot
//
// The file "booting.lst" in the working directory, one line per package:
//   <name>^<version> # <time> <timeout> <force>
// time in seconds when the line was written, timeout in seconds or -1 for no limit, force 0 or 1.
// The file is read anew by every call; one thread.
#pragma once

#include "pathname.h"

namespace km {

pathname get_booting_file();

// 1 if the package is in the list. `timeout` (may be null) takes -1 without a limit or without
// numbers, -2 while the time is not over, else the allowance that is over; `force` (may be null)
// takes 0 or 1.
int is_in_booting_list(const ustring& name, const ustring& version, long* timeout, int* force);

// Adds the package (once: a second time changes nothing, the time runs from the first) or takes it
// out. A file that cannot be read or written is traced and stays as it is.
void handle_booting_list(const ustring& name, const ustring& version, int add, long timeout,
                         int force);

// User variables that overrule what a package says: __COMMIT_REBOOT_FORCED__ and
// __COMMIT_REBOOT_TIMEOUT__.
void overwrite_reboot_parameters(int* force, long* timeout);

// Hook of other platforms; traces only.
void prepare_delete_booting_list(const pathname& path);
void remove_booting_list_file();

} // namespace km
