// ptr_vector: array of untyped pointers that grows
#pragma once

namespace km {

// Array of pointers for bookkeeping. What `free_element` does with an item is the subclass's; the
// base frees nothing. New slots are null.
class ptr_vector {
  public:
    ptr_vector() = default;
    ptr_vector(int limit, int delta);
    ptr_vector(const ptr_vector&) = delete;
    ptr_vector& operator=(const ptr_vector&) = delete;
    // Calls free_all() if the free flag is set; a subclass with its own free_element does that in
    // its own destructor.
    virtual ~ptr_vector();
    // Appends; returns the index.
    virtual int insert(void* item);
    // Exactly n slots, n below the count counting as the count.
    virtual void set_limit(int n);
    virtual void free_element(void* item);

    // Null if i is below 0 or at or beyond the limit; beyond the count whatever the slot holds.
    void* at(int i) const { return i >= 0 && i < limit_ ? items_[i] : nullptr; }
    void insert_at(int i, void* item);
    // free_element on each item, then count 0.
    void free_all();
    void remove_all() { count_ = 0; }
    int count() const { return count_; }
    int get_limit() const { return limit_; }
    void set_free(int flag) { free_ = flag; }

  protected:
    // Before an insertion, where there may be so many items that the copies of growing by the step
    // would come to their square.
    void double_if_full();

    void** items_ = nullptr;
    int count_ = 0;
    int limit_ = 0;
    int delta_ = 0;
    int free_ = 1;
};

// Kept in the order of `compare` over the keys of the items.
class sorted_ptr_vector : public ptr_vector {
  public:
    sorted_ptr_vector() = default;
    sorted_ptr_vector(int limit, int delta) : ptr_vector(limit, delta) {}
    // The index of the item with this key, old or new: a second item with the same key goes in only
    // if duplicates are allowed.
    int insert(void* item) override;
    // 1 if found. `index` is where the key stands or belongs; with duplicates the first of them.
    virtual int search(const void* key, int& index) const;
    virtual const void* key_of(const void* item) const;
    // Below 0: a before b.
    virtual int compare(const void* a, const void* b) const;
    void set_duplicates(int allowed) { duplicates_ = allowed; }

  protected:
    int duplicates_ = 0;
};

} // namespace km
