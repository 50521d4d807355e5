// detail_coded_objects: which objects stand where in a coded stream
#pragma once

#include "codable.h"
#include "ptr_vector.h"

namespace km {

struct encoded_object {
    const codable* object;
    int id;
};

// Objects of a stream that is being written, in the order of their addresses.
class encoded_objects : public sorted_ptr_vector {
  public:
    encoded_objects() : sorted_ptr_vector(1024, 512) {}
    ~encoded_objects() override { free_all(); }
    void register_object(const codable* object);
    // The object's index in the stream, or -1.
    int find(const codable* object) const;
    const void* key_of(const void* item) const override;
    int compare(const void* a, const void* b) const override;
    void free_element(void* item) override;

  private:
    bool is_behind_all(const codable* object) const;

    int current_id_ = 0;
};

// Objects of a stream that is being read, by index. Does not own them.
class read_objects : public ptr_vector {
  public:
    read_objects() : ptr_vector(1024, 512) {}
    void register_object(const codable* object);
    // Null if there is none of this index.
    codable* find(int index) const;
    // An object is about to be deleted: its index is null from now on.
    void forget(const codable* object);

  private:
    int current_id_ = 0;
};

} // namespace km
