// stream_digest: SHA-256 of a stream whose state can be kept and taken up again
// format: the texts of `states` in docs/formats/stream-source.md
// invariant: a state is used for the offset that it was taken at, and for no other
#include "stream_digest.h"

#include "crypto_library.h"

#include <cstring>

namespace kmhost {

namespace {

constexpr std::size_t kept = 1 << 18;       // a reader is never further ahead
constexpr std::size_t most_held = 2 * kept; // so that bytes move in large blocks

constexpr char digits[] = "0123456789abcdef";

std::string in_hex(const unsigned char* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

int value_of(char digit) {
    const char* at = digit ? std::strchr(digits, digit) : nullptr;
    return at ? static_cast<int>(at - digits) : -1;
}

bool from_hex(const std::string& text, std::string& bytes) {
    if (text.size() % 2)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = value_of(text[i]), low = value_of(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes += static_cast<char>(high << 4 | low);
    }
    return true;
}

constexpr std::size_t block = 64, words = 32;

} // namespace

struct stream_digest::inner {
    SHA256_CTX sum{};
    long worked_in = 0;
    std::string held; // what follows, not worked in yet
    inner() { km::crypto_library::get().sha256_init(&sum); }
};

stream_digest::stream_digest() : inner_(std::make_unique<inner>()) {}
stream_digest::~stream_digest() = default;

void stream_digest::work_in(std::size_t count) {
    km::crypto_library::get().sha256_update(&inner_->sum, inner_->held.data(), count);
    inner_->held.erase(0, count);
    inner_->worked_in += static_cast<long>(count);
}

void stream_digest::add(const unsigned char* bytes, std::size_t count) {
    inner_->held.append(reinterpret_cast<const char*>(bytes), count);
    if (inner_->held.size() > most_held)
        work_in(inner_->held.size() - kept);
}

long stream_digest::position() const {
    return inner_->worked_in + static_cast<long>(inner_->held.size());
}

std::string stream_digest::state_at(long offset) {
    if (offset < inner_->worked_in || offset > position())
        return {};
    work_in(static_cast<std::size_t>(offset - inner_->worked_in));
    const SHA256_CTX& sum = inner_->sum;
    return in_hex(reinterpret_cast<const unsigned char*>(sum.h), words) +
           in_hex(reinterpret_cast<const unsigned char*>(sum.data),
                  static_cast<std::size_t>(offset) % block);
}

bool stream_digest::restore(long offset, const std::string& state) {
    std::string bytes;
    if (offset < 0 || !from_hex(state, bytes) ||
        bytes.size() != words + static_cast<std::size_t>(offset) % block)
        return false;
    SHA256_CTX sum{};
    km::crypto_library::get().sha256_init(&sum);
    std::memcpy(sum.h, bytes.data(), words);
    std::memcpy(sum.data, bytes.data() + words, bytes.size() - words);
    const auto bits = static_cast<unsigned long long>(offset) * 8;
    sum.Nl = static_cast<SHA_LONG>(bits);
    sum.Nh = static_cast<SHA_LONG>(bits >> 32);
    sum.num = static_cast<unsigned>(bytes.size() - words);
    inner_->sum = sum;
    inner_->worked_in = offset;
    inner_->held.clear();
    return true;
}

std::string stream_digest::finish() {
    work_in(inner_->held.size());
    unsigned char bytes[SHA256_DIGEST_LENGTH];
    km::crypto_library::get().sha256_final(bytes, &inner_->sum);
    return in_hex(bytes, sizeof bytes);
}

bool is_digest(std::string& text) {
    if (text.size() != 2 * words)
        return false;
    for (char& c : text) {
        if (c >= 'A' && c <= 'F')
            c = static_cast<char>(c - 'A' + 'a');
        if (value_of(c) < 0)
            return false;
    }
    return true;
}

} // namespace kmhost
