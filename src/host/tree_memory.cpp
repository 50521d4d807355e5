// tree_memory: memory for the commands of a large package
// no format
// invariant: what is never used of the memory takes none
#include "tree_memory.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace kmhost {

namespace {

constexpr long smallest = 1L << 16; // packed; for less, small pages are as quick
constexpr long unpacked = 24;       // bytes of memory for a byte of the file
constexpr long largest = 32L << 20;
constexpr std::uintptr_t large_page = 2U << 20;

std::uintptr_t end_of_heap() { return reinterpret_cast<std::uintptr_t>(::sbrk(0)); }

// The heap grows by `size` at once, and keeps it.
void grow_heap(int size) {
    constexpr std::size_t more_than_is_left = 1 << 20;
    constexpr int comes_by_itself = 4 << 20; // what malloc takes out of its heap after a while
    ::mallopt(M_TOP_PAD, size);
    ::mallopt(M_TRIM_THRESHOLD, 2 * static_cast<int>(largest));
    ::mallopt(M_MMAP_THRESHOLD, comes_by_itself);
    void* volatile block = std::malloc(more_than_is_left);
    std::free(block);
    ::mallopt(M_TOP_PAD, more_than_is_left);
}

} // namespace

void expect_tree(long packed) {
    static bool is_done = false;
    if (packed < smallest || is_done)
        return;
    is_done = true;
    const std::uintptr_t before = end_of_heap();
    grow_heap(static_cast<int>(std::min(packed * unpacked, largest)));
    const std::uintptr_t from = (before + large_page - 1) / large_page * large_page;
    const std::uintptr_t to = end_of_heap() / large_page * large_page;
    if (from < to)
        ::madvise(reinterpret_cast<void*>(from), to - from, MADV_HUGEPAGE);
}

} // namespace kmhost
