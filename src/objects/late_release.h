// late_release: what was removed is given back to its file system by a second processor
#pragma once

#include <cstdint>

namespace km {

// Most of the time that a removal takes goes into the blocks of the file, behind its name. While
// somebody holds the file the name goes alone.
//
// Whether that pays on the file system of `directory`, and does no harm: those of networks rename a
// held file instead of removing it.
bool gives_back_slowly(int directory);

// Holds the file `name` of the directory, when it is large or enough went before to make a thread
// pay. A descriptor for release_late(), or -1: nothing is held. `bytes`: its size, 0 if unknown.
int hold_for_release(int directory, const char* name, std::int64_t bytes);

// Lets go of it, in the background; nothing for -1.
void release_late(int held, std::int64_t bytes);

// Returns when all is given back, which the caller's thread helps with. The next flush then reaches
// it, and no descriptor is open.
void finish_releases();

// While alive no file is given back. The kernel goes round and round in the removal of a directory
// as long as a file that was in it is being given back, and the next one, and so on to the last.
class release_pause {
  public:
    release_pause();
    ~release_pause();
    release_pause(const release_pause&) = delete;
    release_pause& operator=(const release_pause&) = delete;
};

// The thread has time for more. `some` is called in it, between two files that it gives back and
// after wake_release_thread(), until it says that nothing is left to do; `stop` at the beginning of
// finish_releases(). One pair at a time. False: there is no thread to be had.
bool work_before_releases(bool (*some)(), void (*stop)());
void wake_release_thread();

} // namespace km
