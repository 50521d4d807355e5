// crypto_library: libcrypto, loaded when the first digest is made
#pragma once

#define OPENSSL_SUPPRESS_DEPRECATED // the present interface gives no state of a digest away
#include <openssl/evp.h>
#include <openssl/sha.h>

namespace km {

struct crypto_library {
    decltype(&::EVP_MD_fetch) md_fetch;
    decltype(&::EVP_MD_CTX_new) md_ctx_new;
    decltype(&::EVP_MD_CTX_free) md_ctx_free;
    decltype(&::EVP_DigestInit_ex2) digest_init;
    decltype(&::EVP_DigestUpdate) digest_update;
    decltype(&::EVP_DigestFinal_ex) digest_final;
    decltype(&::EVP_EncodeBlock) encode_block;
    decltype(&::SHA256_Init) sha256_init;
    decltype(&::SHA256_Update) sha256_update;
    decltype(&::SHA256_Final) sha256_final;

    // The one of this process, in any thread. Where it cannot be had the process ends, and says
    // why: without digests nothing can be trusted.
    static const crypto_library& get();
};

} // namespace km
