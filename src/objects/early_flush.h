// early_flush: flushing of changed file systems while the work goes on
#pragma once

#include <sys/types.h>

namespace km {

// Notes a change on a file system and about how many bytes it wrote. From time to time a thread of
// its own flushes what came together, so that the flush that counts, flush_touched(), finds little
// left. Nothing relies on it: it only writes earlier what will be written anyway, and its failures
// are those of flush_touched(), which has a descriptor of its own. `directory` is an open directory
// on the file system, lent for the call.
void note_change(dev_t device, int directory, long bytes);

// The flush that counts comes soon: what there is begins, if it is much.
void flush_soon();

// The last change was made: flushes the rest behind the caller's back, if it is much.
void flush_early();

} // namespace km
