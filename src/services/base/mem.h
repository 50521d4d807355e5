// base/mem: allocation families of the runtime, with guards
#pragma once

#include <cstddef>

namespace km {

// The system's allocator with failures as exceptions (mrt_exception "Out of memory (malloc %1$d)").
// `x_free` and `safe_free` take null. The caller owns what comes back.
void* x_malloc(size_t size);
void* x_calloc(size_t count, size_t size);
void* x_realloc(void* p, size_t size);
void x_free(void* p);

void* safe_malloc(size_t size);
void* safe_calloc(size_t count, size_t size);
void* safe_realloc(void* p, size_t size);
void safe_free(void* p);

// A pool: a ring of blocks that can be freed all at once. Pools hold no lock.
//
// A block in memory, offsets in bytes (never on disk):
//    0  8  reserved
//    8  8  previous link of the pool's ring
//   16  8  next link
//   24  8  the user's size n
//   32  n  the user's bytes; the pointer handed out points here
//  32+n 4  guard, filled with 0xA1
// So a block of n bytes takes n + 36. The pool itself is a head of the same 32 bytes:
//    0  8  reserved
//    8  8  next: the first block of the walk that ends at the pool again by previous links
//   16  8  previous: the first of the walk by next links
//   24  8  reserved
// New memory is filled with 0xA1, header included, before the header is set. Freed memory is
// overwritten with 0xF3 before it goes back, so that use after free shows at once, also what a
// growing block leaves behind. A block that grows or changes its pool keeps its bytes and gets a
// new guard.
struct ml_pool;

ml_pool* ml_create();
void* ml_malloc(ml_pool* pool, size_t size);
void* ml_calloc(ml_pool* pool, size_t count, size_t size);
// With a null `p` a fresh allocation. The block keeps its bytes, moves into this pool and gets a
// new guard; a failure leaves it as it was.
void* ml_realloc(ml_pool* pool, void* p, size_t size);
char* ml_strdup(ml_pool* pool, const char* s);
// Null is accepted.
void ml_free(ml_pool* pool, void* p);
// Frees all blocks, also those that nobody freed, and the pool itself.
void ml_destroy(ml_pool* pool);

// The same on the global pool, which is made at its first use.
void* mg_malloc(size_t size);
void* mg_calloc(size_t count, size_t size);
char* mg_strdup(const char* s);
void mg_free(void* p);
// Size 0 frees the block and gives null.
void* mg_realloc(void* p, size_t size);
void mg_init();
// Ends the use of the code page converters, destroys the global pool and clears its pointer.
void mg_cleanup();
// Sets the flags of the global pool and returns the old ones.
int mg_config(int flags);

// Moves a block between a pool and the global pool without copying. Null `p` or pool: nothing.
void mg_to_ml(ml_pool* pool, void* p);
void ml_to_mg(ml_pool* pool, void* p);

} // namespace km
