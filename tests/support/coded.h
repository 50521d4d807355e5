// coded: the coded form of objects in memory
#pragma once

#include "array_channel.h"
#include "codec.h"
#include "decode_channel.h"
#include "encode_channel.h"

#include <functional>
#include <memory>
#include <string>

namespace km_test {

// What an array channel holds.
inline std::string bytes_of(const km::array_output_channel& bytes) {
    return {reinterpret_cast<const char*>(bytes.get_data()),
            static_cast<size_t>(bytes.get_count())};
}

inline const unsigned char* raw(const std::string& bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

inline std::string encoded(const std::function<void(km::encoder&)>& write) {
    km::array_output_channel bytes(64);
    {
        km::encode_channel channel(&bytes);
        km::encoder out(&channel);
        write(out);
    }
    return bytes_of(bytes);
}

inline std::string encoded(const km::codable& object) {
    return encoded([&](km::encoder& out) { out.encode_object(&object); });
}

// A decoder over bytes, which takes them one by one or in blocks.
class reading {
  public:
    explicit reading(std::string bytes, bool in_blocks = false)
        : bytes_(std::move(bytes)), inner_(raw(bytes_), static_cast<int>(bytes_.size())),
          channel_((inner_.inhibit(1), &inner_)), in(&channel_) {
        if (in_blocks)
            channel_.read_in_blocks();
    }
    int bytes_read() const { return channel_.get_bytes_read(); }

  private:
    std::string bytes_;
    km::array_input_channel inner_;
    km::decode_channel channel_;

  public:
    km::decoder in;
};

inline std::unique_ptr<km::codable> decoded(const std::string& bytes, int* status = nullptr,
                                            km::variable_list* variables = nullptr) {
    reading stream(bytes);
    stream.in.variables = variables;
    km::codable* object = nullptr;
    stream.in.decode_object(object);
    if (status)
        *status = stream.in.get_status();
    return std::unique_ptr<km::codable>(object);
}

// Null if the bytes are refused, or hold another class.
template <class T> std::unique_ptr<T> decoded_as(const std::string& bytes) {
    int status = 0;
    auto object = decoded(bytes, &status);
    auto* wanted = status ? nullptr : dynamic_cast<T*>(object.get());
    if (wanted)
        object.release();
    return std::unique_ptr<T>(wanted);
}

} // namespace km_test
