// detail_zip_bytes: little-endian numbers and signatures of the zip container
#pragma once

#include <cstdint>
#include <string>

namespace km::zip {

constexpr std::uint32_t local_signature = 0x04034B50;
constexpr std::uint32_t descriptor_signature = 0x08074B50;
constexpr std::uint32_t central_signature = 0x02014B50;
constexpr std::uint32_t end_signature = 0x06054B50;
constexpr int local_size = 30;
constexpr int descriptor_size = 16;
constexpr int central_size = 46;
constexpr int end_size = 22;
constexpr int flag_encrypted = 1;
constexpr int flag_descriptor = 8;
// The largest archive and entry.
constexpr long largest = 0x7FFFFFFF;

inline void put2(std::string& to, long value) {
    to += static_cast<char>(value);
    to += static_cast<char>(value >> 8);
}

inline void put4(std::string& to, long value) {
    put2(to, value);
    put2(to, value >> 16);
}

inline int get2(const unsigned char* at) { return at[0] | (at[1] << 8); }

inline std::uint32_t get4(const unsigned char* at) {
    return static_cast<std::uint32_t>(get2(at)) | (static_cast<std::uint32_t>(get2(at + 2)) << 16);
}

} // namespace km::zip
