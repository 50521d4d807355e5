// detail_table_format: numbers and marks of a persistent table's file
#pragma once

#include <cstdint>
#include <cstring>

namespace km::pht {

constexpr long file_header_size = 9;
constexpr long slot_header_size = 8;
constexpr long status_place = 6; // in a slot
constexpr std::uint16_t uncommitted = 0xFFFF;
constexpr std::uint16_t committed = 0xCCCC;
constexpr std::uint16_t busy = 0xBBBB;
constexpr std::uint16_t empty = 0xEEEE;
constexpr long largest_file = 0x7FFFFFFF;

template <class Number> Number get(const char* at) {
    Number value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <class Number> void put(char* at, Number value) { std::memcpy(at, &value, sizeof value); }

} // namespace km::pht
