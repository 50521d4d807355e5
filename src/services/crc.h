// crc: checksum of bytes that pass
#pragma once

namespace km {

// CRC-32 as in zip containers.
class CRC32 {
  public:
    CRC32() { reset(); }
    void reset();
    void update(const unsigned char* buffer, int length);
    void update(int byte);
    long get_value() const { return static_cast<long>(value_); }

  private:
    unsigned long value_;
};

} // namespace km
