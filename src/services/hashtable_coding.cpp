// hashtable_coding: coded form of maps
// format: docs/formats/coded-object.md
// invariant: a decoded map never holds an entry without a key
#include "hashtable.h"

#include "codec.h"

#include <memory>

namespace km {

namespace {
constexpr std::int32_t most_buckets = 1048576;
constexpr float least_load = 0.05F, most_load = 100.0F;
} // namespace

const char* HashtableEntry::codable_name() const {
    return "com.ombrel.sd.cmObjects.HashtableEntry";
}

void HashtableEntry::encode_object(encoder& to) const {
    to.encode_object(key_);
    to.encode_object(value_);
}

// A key or value that stands elsewhere already would be freed twice.
codable* HashtableEntry::decode_object(decoder& from, long) {
    owns_ = true;
    key_ = from.take_owned_object<codable>();
    if (!from.get_status())
        value_ = from.take_owned_object<codable>();
    return this;
}

const char* Hashtable::codable_name() const { return "com.ombrel.sd.cmObjects.Hashtable"; }

void Hashtable::encode_object(encoder& to) const {
    to.encode_integer_field(0, count_);
    to.encode_integer_field(1, initial_capacity_);
    to.encode_float_field(2, load_factor_);
    Keyslist entries(*this);
    to.encode_iterator(3, &entries);
}

codable* Hashtable::decode_object(decoder& from, long) {
    std::int32_t count = 0, capacity = 21;
    float load = 0.75F;
    from.decode_integer_field(0, count);
    from.decode_integer_field(1, capacity);
    from.decode_float_field(2, load);
    // A stranger's numbers: neither the exit of init() nor a huge table. NaN fails the tests too.
    if (capacity < 1 || capacity > most_buckets || !(load >= least_load && load <= most_load)) {
        from.set_status(decoder::failed);
        return this;
    }
    init(capacity, load);
    iterator* read = nullptr;
    from.decode_iterator(3, read);
    const std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* element = elements->nextElement();
        auto* entry = dynamic_cast<HashtableEntry*>(element);
        codable* key = entry ? entry->key_ : nullptr;
        codable* value = entry ? entry->value_ : nullptr;
        if (entry)
            entry->owns_ = false;
        from.forget(element);
        delete element;
        if (key && !from.get_status() && put(key, value))
            continue;
        if (!key)
            from.set_status(decoder::failed);
        // A key that is there already, or what came behind a failure.
        for (codable* dropped : {key, value})
            if (dropped) {
                from.forget(dropped);
                delete dropped;
            }
    }
    return this;
}

} // namespace km

extern "C" km::codable* make_HashtableEntry() { return new km::HashtableEntry; }
extern "C" km::codable* make_Hashtable() { return new km::Hashtable; }
