// digest: SHA-256 of bytes that pass
// no format
// invariant: a digest is 64 lower-case hexadecimal digits
#include "digest.h"

#include "crypto_library.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace km {

namespace {
// Looking an algorithm up costs more than the digest of a small file.
const EVP_MD* algorithm() {
    static EVP_MD* const only = crypto_library::get().md_fetch(nullptr, "SHA256", nullptr);
    return only;
}
} // namespace

struct sha256::state {
    const crypto_library& crypto = crypto_library::get();
    EVP_MD_CTX* context = crypto.md_ctx_new();
    ~state() { crypto.md_ctx_free(context); }
    void start() {
        // Without memory or without the algorithm nothing can be trusted.
        if (!context || !crypto.digest_init(context, algorithm(), nullptr))
            std::abort();
    }
};

sha256::sha256() : state_(std::make_unique<state>()) { state_->start(); }
sha256::~sha256() = default;

void sha256::add(const void* bytes, std::size_t count) {
    state_->crypto.digest_update(state_->context, bytes, count);
}

std::string sha256::finish() {
    constexpr char digits[] = "0123456789abcdef";
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    state_->crypto.digest_final(state_->context, bytes, &length);
    state_->start();
    std::string text;
    text.reserve(2 * length);
    for (unsigned i = 0; i < length; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

std::string digest_of(const std::string& bytes) {
    sha256 sum;
    sum.add(bytes.data(), bytes.size());
    return sum.finish();
}

std::string digest_of_open_file(int descriptor, long most) {
    sha256 digest;
    char block[65536]; // two threads may be here
    for (long left = most; left != 0;) {
        const long wanted = left < 0 ? long{sizeof block} : std::min<long>(left, sizeof block);
        const ssize_t got = ::read(descriptor, block, static_cast<std::size_t>(wanted));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return {};
        if (got == 0)
            break;
        digest.add(block, static_cast<std::size_t>(got));
        if (left > 0)
            left -= got;
    }
    return digest.finish();
}

} // namespace km
