// take_elements.h: a coded sequence of one class, read into a vector that owns it
#pragma once

#include "codec.h"
#include "vector.h"

#include <memory>

namespace km {

// Empties `to` and pushes each element of the iterator field. One of another class gives status 2
// and is deleted; what came before a failure stays.
template <class T> void take_elements(decoder& from, int id, vector& to) {
    iterator* read = nullptr;
    to.clear();
    from.decode_iterator(id, read);
    const std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* element = elements->nextElement();
        if (dynamic_cast<T*>(element)) {
            to.push_back(element);
            continue;
        }
        from.set_status(decoder::failed);
        from.forget(element);
        delete element;
    }
}

} // namespace km
