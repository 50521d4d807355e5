// engine_run: the host's side of one run of the engine
#pragma once

#include "catalog_store.h"
#include "words.h"
#include "worker.h"

namespace kmhost {

// Sets the hooks of this process: progress and described ends go to the worker's line, "make
// durable" flushes what objects touched and the catalog, and reboots are noted for the package that
// `id` names when they are asked for. `store` and `id` are lent and may be null.
void set_hooks(worker_line& line, catalog_store* store, const package_id* id = nullptr);

// Tells the parent that the stream of this process has failed; nothing where it has not.
void tell_lost_stream();

} // namespace kmhost
