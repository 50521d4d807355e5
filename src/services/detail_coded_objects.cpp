// detail_coded_objects: which objects stand where in a coded stream
// format: docs/formats/coded-object.md
// invariant: indices count new objects from 0 in the order of their first byte
#include "detail_coded_objects.h"

#include <cassert>
#include <functional>

namespace km {

// Most objects were made in the order in which they are written, and so lie in memory.
bool encoded_objects::is_behind_all(const codable* object) const {
    return count() == 0 || compare(key_of(at(count() - 1)), object) < 0;
}

void encoded_objects::register_object(const codable* object) {
    double_if_full();
    auto* item = new encoded_object{object, current_id_++};
    if (is_behind_all(object))
        insert_at(count(), item);
    else
        insert(item);
}

int encoded_objects::find(const codable* object) const {
    int index = 0;
    if (is_behind_all(object))
        return -1;
    return search(object, index) ? static_cast<const encoded_object*>(at(index))->id : -1;
}

const void* encoded_objects::key_of(const void* item) const {
    return static_cast<const encoded_object*>(item)->object;
}

int encoded_objects::compare(const void* a, const void* b) const {
    const std::less<const void*> before;
    return before(a, b) ? -1 : before(b, a) ? 1 : 0;
}

void encoded_objects::free_element(void* item) { delete static_cast<encoded_object*>(item); }

void read_objects::register_object(const codable* object) {
    double_if_full();
    [[maybe_unused]] const int index = insert(const_cast<codable*>(object));
    assert(index == current_id_);
    ++current_id_;
}

codable* read_objects::find(int index) const {
    return index >= 0 && index < count() ? static_cast<codable*>(at(index)) : nullptr;
}

void read_objects::forget(const codable* object) {
    // What is dropped was read a moment ago, so the walk from the end is short.
    for (int i = count(); i-- > 0;)
        if (items_[i] == object) {
            items_[i] = nullptr;
            return;
        }
}

} // namespace km
