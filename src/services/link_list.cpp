// link_list: intrusive list of codable links and its cursor
// no format
// invariant: the ring is closed through the sentinel; the count equals the links beside it
#include "link_list.h"

#include <utility>

namespace km {

using codable_link::link;

list::list() { head_.prev = head_.next = &head_; }

list::~list() { clear(); }

void list::push_back(link* one) { insert_after(one, head_.prev); }

void list::insert_after(link* one, link* at) {
    one->prev = at;
    one->next = at->next;
    at->next->prev = one;
    at->next = one;
    ++count_;
}

void list::unlink(link* one) {
    one->prev->next = one->next;
    one->next->prev = one->prev;
    one->prev = one->next = nullptr;
    --count_;
}

void list::remove(link* one) {
    unlink(one);
    delete one;
}

void list::clear() {
    while (count_)
        remove(head_.next);
}

void list::reverse() {
    link* at = &head_;
    do {
        std::swap(at->prev, at->next);
        at = at->prev;
    } while (at != &head_);
}

list_iterator::list_iterator(const list& of) : end_(of.sentinel()), current_(of.sentinel()->next) {}

codable* list_iterator::nextElement() {
    if (current_ == end_)
        return nullptr;
    link* one = current_;
    current_ = one->next;
    return one;
}

} // namespace km
