// base/mem: allocation families of the runtime, with guards
// no format on disk; the layout of a block stands in the header
// invariant: a block's guard stands directly behind the user's bytes
#include "base/mem.h"

#include "base/mrt_exception.h"
#include "base/uxl.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace km {

// Head of a pool's ring and, in the same shape, head of a block.
struct ml_pool {
    std::uint64_t reserved_first;
    ml_pool* previous;
    ml_pool* next;
    std::uint64_t size; // of a block: the user's bytes; of a pool: reserved
};

namespace {

constexpr unsigned char fresh = 0xA1;
constexpr unsigned char freed = 0xF3;
constexpr size_t guard_size = 4;
constexpr size_t head_size = sizeof(ml_pool);
static_assert(head_size == 32);

ml_pool* global_pool = nullptr;
int global_flags = 0;

[[noreturn]] void out_of_memory(size_t size) {
    throw mrt_exception("", 0, "Out of memory (malloc %1$d)", {std::to_string(size)});
}

size_t product(size_t count, size_t size) {
    if (size && count > SIZE_MAX / size)
        out_of_memory(SIZE_MAX);
    return count * size;
}

void* checked(void* p, size_t size) {
    if (!p && size)
        out_of_memory(size);
    return p;
}

unsigned char* bytes_of(ml_pool* block) { return reinterpret_cast<unsigned char*>(block); }

ml_pool* block_of(void* p) {
    return reinterpret_cast<ml_pool*>(static_cast<unsigned char*>(p) - head_size);
}

void link_behind(ml_pool* head, ml_pool* block) {
    block->previous = head;
    block->next = head->next;
    head->next->previous = block;
    head->next = block;
}

void unlink(ml_pool* block) {
    block->previous->next = block->next;
    block->next->previous = block->previous;
}

size_t whole_size(size_t size) {
    if (size > SIZE_MAX - head_size - guard_size)
        out_of_memory(size);
    return head_size + size + guard_size;
}

// A compiler may drop what is written to memory that is freed next; this it must keep.
void overwrite(ml_pool* block) {
    std::memset(static_cast<void*>(block), freed, whole_size(block->size));
    __asm__ volatile("" : : "r"(block) : "memory");
}

void set_guard(ml_pool* block) {
    std::memset(bytes_of(block) + head_size + block->size, fresh, guard_size);
}

void release(ml_pool* block) {
    unlink(block);
    overwrite(block);
    std::free(block);
}

ml_pool* global() {
    if (!global_pool)
        global_pool = ml_create();
    return global_pool;
}

void move_to(ml_pool* pool, void* p) {
    if (!pool || !p)
        return;
    unlink(block_of(p));
    link_behind(pool, block_of(p));
    set_guard(block_of(p));
}

} // namespace

void* x_malloc(size_t size) { return checked(std::malloc(size), size); }
void* x_calloc(size_t count, size_t size) {
    const size_t all = product(count, size);
    return checked(std::calloc(count, size), all);
}
void* x_realloc(void* p, size_t size) { return checked(std::realloc(p, size), size); }
void x_free(void* p) { std::free(p); }

void* safe_malloc(size_t size) { return x_malloc(size); }
void* safe_calloc(size_t count, size_t size) { return x_calloc(count, size); }
void* safe_realloc(void* p, size_t size) { return x_realloc(p, size); }
void safe_free(void* p) { x_free(p); }

ml_pool* ml_create() {
    auto* pool = static_cast<ml_pool*>(x_calloc(1, head_size));
    pool->previous = pool->next = pool;
    return pool;
}

void* ml_malloc(ml_pool* pool, size_t size) {
    auto* block = static_cast<ml_pool*>(x_malloc(whole_size(size)));
    std::memset(static_cast<void*>(block), fresh, whole_size(size));
    block->size = size;
    link_behind(pool, block);
    return bytes_of(block) + head_size;
}

void* ml_calloc(ml_pool* pool, size_t count, size_t size) {
    const size_t all = product(count, size);
    return std::memset(ml_malloc(pool, all), 0, all);
}

void* ml_realloc(ml_pool* pool, void* p, size_t size) {
    if (!p)
        return ml_malloc(pool, size);
    // Not the system's realloc: what it leaves behind would not be overwritten.
    ml_pool* old = block_of(p);
    void* moved = ml_malloc(pool, size);
    std::memcpy(moved, p, std::min<size_t>(size, old->size));
    release(old);
    return moved;
}

char* ml_strdup(ml_pool* pool, const char* s) {
    const size_t size = std::strlen(s) + 1;
    return static_cast<char*>(std::memcpy(ml_malloc(pool, size), s, size));
}

void ml_free(ml_pool*, void* p) {
    if (p)
        release(block_of(p));
}

void ml_destroy(ml_pool* pool) {
    while (pool->next != pool)
        release(pool->next);
    std::free(pool);
}

void* mg_malloc(size_t size) { return ml_malloc(global(), size); }
void* mg_calloc(size_t count, size_t size) { return ml_calloc(global(), count, size); }
char* mg_strdup(const char* s) { return ml_strdup(global(), s); }
void mg_free(void* p) { ml_free(global(), p); }

void* mg_realloc(void* p, size_t size) {
    if (size)
        return ml_realloc(global(), p, size);
    mg_free(p);
    return nullptr;
}

void mg_init() { global(); }

void mg_cleanup() {
    uxl_uninit();
    if (global_pool)
        ml_destroy(global_pool);
    global_pool = nullptr;
}

int mg_config(int flags) {
    const int old = global_flags;
    global_flags = flags;
    return old;
}

void mg_to_ml(ml_pool* pool, void* p) { move_to(pool, p); }

void ml_to_mg(ml_pool* pool, void* p) {
    if (pool)
        move_to(global(), p);
}

} // namespace km
