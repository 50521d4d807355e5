// pack_ahead: data of files, deflated by a second processor before they are asked for
#pragma once

#include "deflated_entry.h"
#include "read_ahead.h"

#include <functional>
#include <memory>

namespace km {

class cm_package;
class km_file;
class zipping_channel;

// What the tree, which is packed before the data, tells of a file's data.
struct told_data {
    long size = 0;
    std::string digest;
    known_file read; // these data have that digest while the file is this one
};

enum class passing { whole, unreadable, changed }; // unreadable: with errno

// Hands the data of the open file on, in portions of at most 64 KiB. They end with `told.size`
// bytes; that they were others is known at the end only. Any thread may be here.
passing pass_data(int in, const told_data& told,
                  const std::function<void(const unsigned char*, int)>& to);

// While a package is saved: the data of the files that come next are read and deflated by a thread
// of its own and, while it would have to wait, by the caller's. What it does not give, since it
// could not be read, is no longer what the tree tells, or is large, the caller looks at himself:
// all faults are his. At most 16 MiB wait. One at a time in a process.
class pack_ahead {
  public:
    // The package must outlive this.
    explicit pack_ahead(cm_package& package);
    ~pack_ahead();
    pack_ahead(const pack_ahead&) = delete;
    pack_ahead& operator=(const pack_ahead&) = delete;

    struct shared;

  private:
    std::unique_ptr<shared> shared_;
};

// The data of the file, which is to be saved to `out` next; null: they are to be read. The first
// call begins with the work, so that every file was loaded.
std::unique_ptr<deflated_data> take_packed_ahead(const km_file& file, const zipping_channel& out);

} // namespace km
