#include "auth/secret_compare.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>

namespace crelm::auth {

namespace {

using Digest = std::array<unsigned char, 32>;

bool digest_of(std::string_view text, Digest& digest) {
    unsigned int length = 0;
    return EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr) == 1 &&
           length == digest.size();
}

}  // namespace

bool same_secret(std::string_view a, std::string_view b) {
    Digest first{};
    Digest second{};
    const bool hashed = digest_of(a, first) && digest_of(b, second);
    const bool same = CRYPTO_memcmp(first.data(), second.data(), first.size()) == 0;
    OPENSSL_cleanse(first.data(), first.size());
    OPENSSL_cleanse(second.data(), second.size());
    return hashed && same;
}

}  // namespace crelm::auth
