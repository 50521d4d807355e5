// vector: array of codable pointers with ownership
#pragma once

#include "codable.h"
#include "iterator.h"

namespace km {

// Array of codable objects that it usually owns. It is coded as a sequence of its elements and not
// as an object of its own.
class vector : public uncoded<codable> {
  public:
    static int initial_capacity; // 32

    vector() = default;
    vector(const vector& other);
    // Deep: each element is cloned, and the copy owns its elements.
    vector& operator=(const vector& other);
    ~vector() override;

    int size() const { return size_; }
    int get_capacity() const { return capacity_; }
    bool empty() const { return size_ == 0; }
    // Null outside.
    codable* operator[](int index) const {
        return index >= 0 && index < size_ ? data_[index] : nullptr;
    }
    // The element as a T, null outside or if it is of another class.
    template <class T> T* at(int index) const { return dynamic_cast<T*>((*this)[index]); }

    void set_owns(int owns) { owns_ = owns; }
    int get_owns() const { return owns_; }

    // Grows to exactly n slots; never shrinks.
    void reserve(int n);
    // The vector takes the object over if it owns its elements.
    void push_back(codable* one);
    // Index below 0 counts as 0; at or beyond the size it appends.
    void insert(codable* one, int index);
    // Deletes the element, whether or not the vector owns it. An index below 0 counts as 0, one
    // beyond the end as the last; nothing on an empty vector.
    void remove(int index);
    // Takes the element out without deleting it; null outside.
    codable* detach(int index);
    // Deletes the last element only if `destroy` is not 0.
    void pop_back(int destroy);
    // Only shrinks; the elements from n on are deleted if the vector owns them.
    void resize(int n);
    void clear() { resize(0); }
    // First element that is equal by its virtual operator==, or -1.
    int index_of(const codable& one) const;

    codable* clone() const override { return new vector(*this); }

  private:
    int capacity_ = 0;
    int size_ = 0;
    codable** data_ = nullptr;
    int owns_ = 1;
};

class vector_iterator : public iterator {
  public:
    // Lends the vector; with `owns_vector` it is deleted with the iterator.
    explicit vector_iterator(vector* of, int owns_vector = 0)
        : vector_(of), owns_vector_(owns_vector) {}
    ~vector_iterator() override {
        if (owns_vector_)
            delete vector_;
    }
    vector_iterator(const vector_iterator&) = delete;
    vector_iterator& operator=(const vector_iterator&) = delete;
    int hasMoreElements() override { return next_ < vector_->size(); }
    codable* nextElement() override {
        return next_ < vector_->size() ? (*vector_)[next_++] : nullptr;
    }
    vector* get_vector() const { return vector_; }

  private:
    vector* vector_;
    int owns_vector_;
    int next_ = 0;
};

} // namespace km
