// crypto_library: libcrypto, loaded when the first digest is made
// no format
// invariant: every function is there
#include "crypto_library.h"

#include "engine_exit.h"
#include "lazy_library.h"

namespace km {

namespace {
crypto_library load() {
    crypto_library all{};
    lazy_library from("libcrypto.so.3");
    from.find("EVP_MD_fetch", all.md_fetch);
    from.find("EVP_MD_CTX_new", all.md_ctx_new);
    from.find("EVP_MD_CTX_free", all.md_ctx_free);
    from.find("EVP_DigestInit_ex2", all.digest_init);
    from.find("EVP_DigestUpdate", all.digest_update);
    from.find("EVP_DigestFinal_ex", all.digest_final);
    from.find("EVP_EncodeBlock", all.encode_block);
    from.find("SHA256_Init", all.sha256_init);
    from.find("SHA256_Update", all.sha256_update);
    from.find("SHA256_Final", all.sha256_final);
    if (!from.why().empty())
        engine_exit(1, from.why().c_str());
    return all;
}
} // namespace

const crypto_library& crypto_library::get() {
    static const crypto_library only = load();
    return only;
}

} // namespace km
