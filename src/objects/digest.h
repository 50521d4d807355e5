// digest: SHA-256 of bytes that pass
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace km {

class sha256 {
  public:
    sha256();
    ~sha256();
    sha256(const sha256&) = delete;
    sha256& operator=(const sha256&) = delete;

    void add(const void* bytes, std::size_t count);
    // 64 hexadecimal digits; starts anew.
    std::string finish();

  private:
    struct state;
    std::unique_ptr<state> state_;
};

std::string digest_of(const std::string& bytes);

// Digest of what an open file holds from its present position on, of `most` bytes at most (-1:
// all). Empty, with errno, on failure.
std::string digest_of_open_file(int descriptor, long most = -1);

} // namespace km
