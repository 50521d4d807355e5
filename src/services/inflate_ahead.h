// inflate_ahead: entries of a local container, inflated on a second processor
#pragma once

#include "vector.h"

#include <memory>
#include <string>

namespace km {

// Inflates the smaller entries of a container in a thread of its own, while its reader is at work
// with those before them. It gives what it found whole and in agreement with checksum, sizes and
// descriptor, and nothing else: of everything that it does not give the reader finds the faults
// itself. Never more than a few MiB wait.
class inflate_ahead {
  public:
    // What `take` gives, with what `digest` of the constructor made of it.
    struct entry_data {
        std::string bytes;
        std::string digest;
    };

    // `directory` holds the container's zip_entries; they are copied as far as they are needed.
    // `digest`, if there is one, is called in the other thread.
    inflate_ahead(const char* path, const vector& directory,
                  std::string (*digest)(const std::string&) = nullptr);
    ~inflate_ahead();
    inflate_ahead(const inflate_ahead&) = delete;
    inflate_ahead& operator=(const inflate_ahead&) = delete;

    // The data of the entry whose local header stands at `offset`, and in `packed` how many bytes
    // it takes in the container; null for an entry that is not to be had. Waits for one that comes.
    // What lies in front of it is dropped: readers go forward.
    std::unique_ptr<entry_data> take(long offset, long& packed);

    struct shared;

  private:
    std::unique_ptr<shared> shared_;
};

} // namespace km
