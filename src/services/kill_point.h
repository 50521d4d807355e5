// kill_point: named points at which a test can end the process
#pragma once

#ifdef KM_KILL_POINTS
namespace km {
// Ends the process with SIGKILL if the environment variable KM_KILL_AT is `name`, or "name:n" at
// the n-th pass (from 1). Passes are counted while it is set.
void pass_kill_point(const char* name);
} // namespace km
// A step that a crash could split. Every name is hit by a test.
#define KM_KILL_POINT(name) ::km::pass_kill_point(name)
#else
#define KM_KILL_POINT(name) ((void)0)
#endif
