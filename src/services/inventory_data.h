// inventory_data: what an inventory scan looks for
#pragma once

#include "hashtable.h"
#include "pathname.h"
#include "vector.h"

namespace km {

// What is known of one file of an inventory; never coded.
class file_data : public uncoded<codable> {
  public:
    file_data() = default;
    file_data(const pathname& of, long bytes, long modified, long checksum)
        : path(of), size(bytes), time(modified), crc(checksum) {}
    codable* clone() const override { return new file_data(*this); }

    pathname path;
    long size = 0; // bytes
    long time = 0; // seconds
    long crc = 0;
};

// Gathered while a package is checked: the files, and beside them the paths that were passed over.
class znp_inv_data {
  public:
    // Takes the record over.
    void add(file_data* one) { files_.push_back(one); }
    void add_skipped(const pathname& path);
    // All skipped paths, each followed by a line feed, in table order.
    void get_all_skipped(ustring& text);
    vector& get_vector() { return files_; }

  private:
    vector files_;
    Hashtable skipped_{21, 0.75F};
};

} // namespace km
