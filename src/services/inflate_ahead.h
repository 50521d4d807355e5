// inflate_ahead: entries of a container, inflated on a second processor
#pragma once

#include "vector.h"

#include <memory>
#include <string>

namespace km {

class bytes_ahead;

// What is made of the bytes of an entry by the thread that inflates, when the reader is close to
// it.
class entry_work {
  public:
    // What it leaves with the data of the entry, and goes with them.
    struct product {
        virtual ~product() = default;
    };

    entry_work() = default;
    virtual ~entry_work() = default;
    entry_work(const entry_work&) = delete;
    entry_work& operator=(const entry_work&) = delete;
    // `later`: not yet, and no entry behind it either.
    enum class when { never, later, now };
    // Whether the entry's turn has come. Called in either thread, which the other one waits for.
    virtual when is_due(const std::string& name) = 0;
    // Called in the thread that inflates. Null: nothing came of it, and nobody is told; it is tried
    // again if the entry turns out to be due later.
    virtual std::unique_ptr<product> work(const std::string& name, const std::string& bytes) = 0;
};

// Inflates the smaller entries of a container in a thread of its own, while its reader is at work
// with those before them. It gives what it found whole and in agreement with checksum, sizes and
// descriptor, and nothing else: of everything that it does not give the reader finds the faults
// itself. Never more than a few MiB wait.
class inflate_ahead {
  public:
    // What `take` gives, with what `digest` and `work` of the constructor made of it.
    struct entry_data {
        std::string bytes;
        std::string digest;
        std::unique_ptr<entry_work::product> product;
    };

    // `directory` holds the container's zip_entries; they are copied as far as they are needed.
    // `digest`, if there is one, is called in the other thread. `work`, if there is some, is lent,
    // and done on a few entries at most that wait for the reader.
    inflate_ahead(const char* path, const vector& directory,
                  std::string (*digest)(const std::string&) = nullptr, entry_work* work = nullptr);
    // Of a container that arrives: what of `stream`, which is lent, came before it is read is
    // looked through. Its reader is never kept waiting for bytes that have not come.
    inflate_ahead(bytes_ahead& stream, std::string (*digest)(const std::string&) = nullptr,
                  entry_work* work = nullptr);
    ~inflate_ahead();
    inflate_ahead(const inflate_ahead&) = delete;
    inflate_ahead& operator=(const inflate_ahead&) = delete;

    // The data of the entry whose local header stands at `offset`, and in `packed` how many bytes
    // it takes in the container; null for an entry that is not to be had. Waits for one that comes.
    // What lies in front of it is dropped: readers go forward.
    std::unique_ptr<entry_data> take(long offset, long& packed);

    // The turn of other entries has come.
    void look_again();

    struct shared;

  private:
    std::unique_ptr<shared> shared_;
};

} // namespace km
