// vector: array of codable pointers with ownership
// format: none of its own; a sequence of its elements
// invariant: slots behind the size are null
#include "vector.h"

#include <algorithm>

namespace km {

int vector::initial_capacity = 32;

vector::vector(const vector& other) : uncoded<codable>(other) { *this = other; }

vector& vector::operator=(const vector& other) {
    if (this == &other)
        return *this;
    clear();
    owns_ = 1;
    reserve(other.size_);
    for (int i = 0; i < other.size_; ++i)
        push_back(other.data_[i] ? other.data_[i]->clone() : nullptr);
    return *this;
}

vector::~vector() {
    clear();
    delete[] data_;
}

void vector::reserve(int n) {
    if (n <= capacity_)
        return;
    auto** bigger = new codable*[static_cast<unsigned>(n)]();
    std::copy(data_, data_ + size_, bigger);
    delete[] data_;
    data_ = bigger;
    capacity_ = n;
}

void vector::push_back(codable* one) { insert(one, size_); }

void vector::insert(codable* one, int index) {
    index = std::clamp(index, 0, size_);
    if (size_ == capacity_)
        reserve(capacity_ ? capacity_ * 2 : initial_capacity);
    std::copy_backward(data_ + index, data_ + size_, data_ + size_ + 1);
    data_[index] = one;
    ++size_;
}

codable* vector::detach(int index) {
    if (index < 0 || index >= size_)
        return nullptr;
    codable* one = data_[index];
    std::copy(data_ + index + 1, data_ + size_, data_ + index);
    data_[--size_] = nullptr;
    return one;
}

void vector::remove(int index) {
    if (size_)
        delete detach(std::clamp(index, 0, size_ - 1));
}

void vector::pop_back(int destroy) {
    codable* last = detach(size_ - 1);
    if (destroy)
        delete last;
}

void vector::resize(int n) {
    while (size_ > std::max(n, 0))
        pop_back(owns_);
}

int vector::index_of(const codable& one) const {
    for (int i = 0; i < size_; ++i)
        if (data_[i] && *data_[i] == one)
            return i;
    return -1;
}

} // namespace km
