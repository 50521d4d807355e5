// late_release: what was removed is given back to its file system by a second processor
#pragma once

namespace km {

// Most of the time that a removal takes goes into the blocks of the file, behind its name. While
// somebody holds the file the name goes alone.
//
// Whether that pays on the file system of `directory`, and does no harm: those of networks rename a
// held file instead of removing it.
bool gives_back_slowly(int directory);

// Holds the file `name` of the directory, when enough went before to make a thread pay. A
// descriptor for release_late(), or -1: nothing is held.
int hold_for_release(int directory, const char* name);

// Lets go of it, in the background; nothing for -1.
void release_late(int held);

// Returns when all is given back. The next flush then reaches it, and no descriptor is open.
void finish_releases();

// The thread has time for more. `some` is called in it, between two files that it gives back and
// after wake_release_thread(), until it says that nothing is left to do; `stop` at the beginning of
// finish_releases(). One pair at a time. False: there is no thread to be had.
bool work_before_releases(bool (*some)(), void (*stop)());
void wake_release_thread();

} // namespace km
