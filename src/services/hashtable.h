// hashtable: map of codable to codable with chains
#pragma once

#include "codable.h"
#include "iterator.h"

namespace km {

// One entry of a bucket's chain. Key and value belong to the table, not to the entry: deleting an
// entry deletes neither, unless it was decoded and no table took them over.
class HashtableEntry : public codable {
  public:
    HashtableEntry() = default;
    HashtableEntry(std::uint32_t hash, codable* key, codable* value)
        : hash_(hash), key_(key), value_(value) {}

    ~HashtableEntry() override;
    HashtableEntry(const HashtableEntry&) = delete;
    HashtableEntry& operator=(const HashtableEntry&) = delete;

    codable* get_key() const { return key_; }
    codable* get_value() const { return value_; }
    std::uint32_t get_hash() const { return hash_; }

    codable* clone() const override { return nullptr; }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    // The key object, then the value object.
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    // Words of the file-backed table; plain copies here.
    std::uint32_t reserved[3] = {0, 0, 0};

  private:
    friend class Hashtable;
    friend class Keyslist;
    std::uint32_t hash_ = 0;
    codable* key_ = nullptr;
    codable* value_ = nullptr;
    HashtableEntry* next_ = nullptr;
    bool owns_ = false;
};

// Map with one chain per bucket. It owns keys and values. Keys answer hash_code and operator==.
// A capacity below 1 or a load factor not above 0 ends the process with status 1.
//
// Coded form: integer field 0 count, 1 initial capacity, float field 2 load factor, iterator field
// 3 the entries, last bucket first.
class Hashtable : public codable {
  public:
    Hashtable();
    Hashtable(int capacity, float load);
    // Deep: every key and value is cloned, chains keep their order.
    Hashtable(const Hashtable& other);
    Hashtable& operator=(const Hashtable& other);
    ~Hashtable() override;

    // Drops all content and starts with `capacity` buckets.
    void init(int capacity, float load);

    // 1 and the table owns both; 0 if the key is there: the old value stays, both stay the
    // caller's, and is_duplicate() tells.
    int put(codable* key, codable* value);
    // Puts clones; the caller keeps its objects in either case.
    int put(const codable& key, const codable& value);
    // The table's value, or null.
    codable* get(const codable& key) const;
    template <class T> T* get_as(const codable& key) const { return dynamic_cast<T*>(get(key)); }
    int contains(const codable* key) const;
    // Grows to 2n + 1 buckets.
    void rehash();

    int size() const { return count_; }
    int get_capacity() const { return capacity_; }
    int get_initial_capacity() const { return initial_capacity_; }
    float get_load_factor() const { return load_factor_; }
    int is_duplicate() const { return duplicate_; }
    // The entry most recently found or inserted, or null.
    HashtableEntry* get_last_entry() const { return last_entry_; }

    codable* clone() const override { return new Hashtable(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    // Replaces or inserts; the table owns both.
    virtual int update(codable* key, codable* value);
    // Deletes the entry, its key and its value; 1 also if there is none. `key` stays the caller's.
    virtual int remove(const codable* key);
    virtual void clear();

  protected:
    HashtableEntry* find_entry(const codable& key) const {
        return find_entry(key, key.hash_code());
    }
    HashtableEntry* find_entry(const codable& key, std::uint32_t hash) const;
    // Takes the entry of `key` out of its chain and out of the count; the entry, its key and its
    // value are the caller's then. Null if there is none.
    HashtableEntry* unlink_entry(const codable& key);
    // Deletes the entry's value and puts another in its place, which the table owns.
    static void replace_value(HashtableEntry* entry, codable* value);

  private:
    friend class Keyslist;
    std::uint32_t bucket_of(std::uint32_t hash) const {
        return hash % static_cast<std::uint32_t>(capacity_);
    }
    void copy_from(const Hashtable& other);

    mutable HashtableEntry* last_entry_ = nullptr;
    int duplicate_ = 0;
    HashtableEntry** table_ = nullptr;
    int count_ = 0;
    int threshold_ = 0;
    int capacity_ = 0;
    int initial_capacity_ = 0;
    float load_factor_ = 0;
};

// Cursor over the entries (not the keys) of a table, from the last bucket to the first, each chain
// from its head. Owns nothing; a change of the table ends its use.
class Keyslist : public iterator {
  public:
    explicit Keyslist(const Hashtable& of) : bucket_(of.capacity_), table_(of.table_) {}
    int hasMoreElements() override;
    codable* nextElement() override { return next_entry(); }
    HashtableEntry* next_entry();

  private:
    int bucket_;
    HashtableEntry** table_;
    HashtableEntry* current_ = nullptr;
};

} // namespace km
