// link_list: intrusive list of codable links and its cursor
#pragma once

#include "codable.h"
#include "iterator.h"

namespace km {

namespace codable_link {

// A node of one circular, doubly linked list at most. A copy belongs to no list.
class link : public codable {
  public:
    link() = default;
    link(const link& other) : codable(other) {}
    link& operator=(const link& other) {
        codable::operator=(other);
        return *this;
    }

    link* prev = nullptr;
    link* next = nullptr;
};

} // namespace codable_link

// Intrusive list that owns its links: the destructor deletes them. A link in two lists is the
// caller's error.
class list {
  public:
    list();
    ~list();
    list(const list&) = delete;
    list& operator=(const list&) = delete;

    void push_back(codable_link::link* one);
    // Behind `at`, which is a link of this list or its sentinel.
    void insert_after(codable_link::link* one, codable_link::link* at);
    // Takes a link out; it is the caller's then.
    void unlink(codable_link::link* one);
    // Takes a link out and deletes it.
    void remove(codable_link::link* one);
    void clear();
    int size() const { return count_; }
    void reverse();

    codable_link::link* sentinel() { return &head_; }
    const codable_link::link* sentinel() const { return &head_; }
    // Null if empty.
    codable_link::link* front() const { return count_ ? head_.next : nullptr; }
    codable_link::link* back() const { return count_ ? head_.prev : nullptr; }

  private:
    class anchor : public uncoded<codable_link::link> {
      public:
        codable* clone() const override { return nullptr; }
    };
    anchor head_;
    int count_ = 0;
};

// Cursor from the head to the end. It holds the sentinel and the current link; a walk backwards
// sets the current link and steps through `prev` by hand. Owns nothing.
class list_iterator : public iterator {
  public:
    explicit list_iterator(const list& of);
    int hasMoreElements() override { return current_ != end_; }
    // The current link, stepping to the next; null at the end.
    codable* nextElement() override;
    codable_link::link* get_current() const { return current_; }
    void set_current(codable_link::link* at) { current_ = at; }
    const codable_link::link* get_sentinel() const { return end_; }

  private:
    const codable_link::link* end_;
    codable_link::link* current_;
};

} // namespace km
