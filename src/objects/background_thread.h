// background_thread: a thread of the library's own beside the one that works
#pragma once

namespace km {

// Starts `work` for the rest of the process. Signals stay with the caller's thread. False: there is
// no thread to be had, and the caller does the work itself.
bool start_background_thread(void* (*work)(void*));

} // namespace km
