// ptr_vector: array of untyped pointers that grows
// no format
// invariant: the limit is never below the count
#include "ptr_vector.h"

#include <algorithm>

namespace km {

ptr_vector::ptr_vector(int limit, int delta) : delta_(delta) { ptr_vector::set_limit(limit); }

ptr_vector::~ptr_vector() {
    if (free_)
        free_all();
    delete[] items_;
}

int ptr_vector::insert(void* item) {
    insert_at(count_, item);
    return count_ - 1;
}

void ptr_vector::set_limit(int n) {
    n = std::max(n, count_);
    if (n == limit_)
        return;
    void** slots = n ? new void*[static_cast<unsigned>(n)]() : nullptr;
    std::copy(items_, items_ + count_, slots);
    delete[] items_;
    items_ = slots;
    limit_ = n;
}

void ptr_vector::double_if_full() {
    if (count_ == limit_)
        set_limit(count_ + std::max(delta_, count_));
}

void ptr_vector::free_element(void*) {}

void ptr_vector::insert_at(int i, void* item) {
    if (count_ == limit_)
        set_limit(count_ + std::max(delta_, 1));
    i = std::clamp(i, 0, count_);
    std::copy_backward(items_ + i, items_ + count_, items_ + count_ + 1);
    items_[i] = item;
    ++count_;
}

void ptr_vector::free_all() {
    for (int i = 0; i < count_; ++i)
        free_element(items_[i]);
    count_ = 0;
}

int sorted_ptr_vector::insert(void* item) {
    int index = 0;
    if (!search(key_of(item), index) || duplicates_)
        insert_at(index, item);
    return index;
}

int sorted_ptr_vector::search(const void* key, int& index) const {
    int lo = 0, hi = count_ - 1, found = 0;
    while (lo <= hi) {
        const int mid = lo + (hi - lo) / 2;
        const int c = compare(key_of(items_[mid]), key);
        if (c < 0) {
            lo = mid + 1;
            continue;
        }
        hi = mid - 1;
        if (c == 0) {
            found = 1;
            if (!duplicates_)
                lo = mid;
        }
    }
    index = lo;
    return found;
}

const void* sorted_ptr_vector::key_of(const void* item) const { return item; }

int sorted_ptr_vector::compare(const void*, const void*) const { return 1; }

} // namespace km
