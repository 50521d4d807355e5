// hashtable: map of codable to codable with chains
// format: docs/formats/coded-object.md
// invariant: an entry stands in the chain of its stored hash; the count never passes the threshold
#include "hashtable.h"

#include "engine_exit.h"
#include "trclog.h"

namespace km {

HashtableEntry::~HashtableEntry() {
    if (!owns_)
        return;
    delete key_;
    delete value_;
}

Hashtable::Hashtable() { init(21, 0.75F); }

Hashtable::Hashtable(int capacity, float load) { init(capacity, load); }

Hashtable::Hashtable(const Hashtable& other) : codable(other) { copy_from(other); }

Hashtable& Hashtable::operator=(const Hashtable& other) {
    if (this != &other)
        copy_from(other);
    return *this;
}

Hashtable::~Hashtable() {
    Hashtable::clear();
    delete[] table_;
}

void Hashtable::init(int capacity, float load) {
    if (capacity < 1 || !(load > 0))
        engine_exit(1, "a hash table needs a capacity and a load factor above 0");
    if (table_)
        Hashtable::clear();
    delete[] table_;
    table_ = new HashtableEntry*[static_cast<unsigned>(capacity)]();
    capacity_ = initial_capacity_ = capacity;
    load_factor_ = load;
    threshold_ = static_cast<int>(static_cast<float>(capacity) * load);
    count_ = 0;
    last_entry_ = nullptr;
    duplicate_ = 0;
}

void Hashtable::copy_from(const Hashtable& other) {
    init(other.capacity_, other.load_factor_);
    for (int b = 0; b < other.capacity_; ++b) {
        HashtableEntry** tail = &table_[b];
        for (const HashtableEntry* e = other.table_[b]; e; e = e->next_) {
            *tail = new HashtableEntry(e->hash_, e->key_->clone(),
                                       e->value_ ? e->value_->clone() : nullptr);
            for (int i = 0; i < 3; ++i)
                (*tail)->reserved[i] = e->reserved[i];
            tail = &(*tail)->next_;
        }
    }
    threshold_ = other.threshold_;
    count_ = other.count_;
    initial_capacity_ = other.initial_capacity_;
    duplicate_ = other.duplicate_;
}

HashtableEntry* Hashtable::find_entry(const codable& key, std::uint32_t hash) const {
    for (HashtableEntry* e = table_[bucket_of(hash)]; e; e = e->next_)
        if (e->hash_ == hash && *e->key_ == key)
            return e;
    return nullptr;
}

int Hashtable::put(codable* key, codable* value) {
    static constexpr const char* km_function_name = "Hashtable::put";
    const std::uint32_t hash = key->hash_code();
    if (HashtableEntry* old = find_entry(*key, hash)) {
        last_entry_ = old;
        duplicate_ = 1;
        KM_TRACE(trace_return, "common", "Error: the key is already present");
        return 0;
    }
    while (count_ >= threshold_) {
        KM_TRACE(trace_return, "common", "start reashing count=%d, thresold=%d", count_,
                 threshold_);
        rehash();
    }
    auto* entry = new HashtableEntry(hash, key, value);
    entry->next_ = table_[bucket_of(hash)];
    table_[bucket_of(hash)] = entry;
    last_entry_ = entry;
    ++count_;
    return 1;
}

int Hashtable::put(const codable& key, const codable& value) {
    codable *own_key = key.clone(), *own_value = value.clone();
    if (put(own_key, own_value))
        return 1;
    delete own_key;
    delete own_value;
    return 0;
}

codable* Hashtable::get(const codable& key) const {
    const HashtableEntry* entry = find_entry(key);
    return entry ? entry->value_ : nullptr;
}

int Hashtable::contains(const codable* key) const {
    HashtableEntry* entry = find_entry(*key);
    if (entry)
        last_entry_ = entry;
    return entry != nullptr;
}

int Hashtable::update(codable* key, codable* value) {
    remove(key);
    return put(key, value);
}

HashtableEntry* Hashtable::unlink_entry(const codable& key) {
    const std::uint32_t hash = key.hash_code();
    for (HashtableEntry** at = &table_[bucket_of(hash)]; *at; at = &(*at)->next_)
        if ((*at)->hash_ == hash && *(*at)->key_ == key) {
            HashtableEntry* entry = *at;
            *at = entry->next_;
            --count_;
            if (last_entry_ == entry)
                last_entry_ = nullptr;
            return entry;
        }
    return nullptr;
}

void Hashtable::replace_value(HashtableEntry* entry, codable* value) {
    delete entry->value_;
    entry->value_ = value;
}

int Hashtable::remove(const codable* key) {
    HashtableEntry* entry = unlink_entry(*key);
    if (entry) {
        delete entry->value_;
        delete entry->key_;
        delete entry;
    }
    return 1;
}

void Hashtable::clear() {
    for (int b = 0; b < capacity_; ++b)
        while (HashtableEntry* entry = table_[b]) {
            table_[b] = entry->next_;
            delete entry->value_;
            delete entry->key_;
            delete entry;
        }
    count_ = 0;
    last_entry_ = nullptr;
}

void Hashtable::rehash() {
    const int old_capacity = capacity_;
    HashtableEntry** old = table_;
    capacity_ = old_capacity * 2 + 1;
    threshold_ = static_cast<int>(static_cast<float>(capacity_) * load_factor_);
    table_ = new HashtableEntry*[static_cast<unsigned>(capacity_)]();
    for (int b = old_capacity; b-- > 0;)
        while (HashtableEntry* entry = old[b]) {
            old[b] = entry->next_;
            entry->next_ = table_[bucket_of(entry->hash_)];
            table_[bucket_of(entry->hash_)] = entry;
        }
    delete[] old;
}

int Keyslist::hasMoreElements() {
    while (!current_ && bucket_ > 0)
        current_ = table_[--bucket_];
    return current_ != nullptr;
}

HashtableEntry* Keyslist::next_entry() {
    if (!hasMoreElements())
        return nullptr;
    HashtableEntry* entry = current_;
    current_ = entry->next_;
    return entry;
}

} // namespace km
