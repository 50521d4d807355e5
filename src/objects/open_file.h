// open_file: a descriptor that is closed with its owner
#pragma once

#include <unistd.h>

namespace km {

class open_file {
  public:
    // Takes it over; a negative one is none.
    explicit open_file(int descriptor) : descriptor_(descriptor) {}
    ~open_file() {
        if (good())
            ::close(descriptor_);
    }
    open_file(const open_file&) = delete;
    open_file& operator=(const open_file&) = delete;
    int get() const { return descriptor_; }
    bool good() const { return descriptor_ >= 0; }

  private:
    int descriptor_;
};

} // namespace km
