#include "runtime/md5_hex.h"

#include <openssl/evp.h>

#include <cstdio>
#include <memory>
#include <string>

#include "runtime/log.h"

namespace {

struct DigestContextFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;

// MD5 fetched from the provider once per process: a digest named through
// EVP_md5() is looked up again at every use, which costs more than
// digesting a short name. The method lives until the process ends.
const EVP_MD* md5_method() {
    static EVP_MD* const method = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return method;
}

bool digest_md5(std::string_view first, std::string_view second, unsigned char (&digest)[16]) {
    const EVP_MD* method = md5_method();
    DigestContext context(EVP_MD_CTX_new());
    unsigned int length = 0;
    return method != nullptr && context && EVP_DigestInit_ex(context.get(), method, nullptr) == 1 &&
           EVP_DigestUpdate(context.get(), first.data(), first.size()) == 1 &&
           EVP_DigestUpdate(context.get(), second.data(), second.size()) == 1 &&
           EVP_DigestFinal_ex(context.get(), digest, &length) == 1 && length == 16;
}

std::string_view text_or_empty(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

}  // namespace

int md5_hex(const char* first, const char* second, char out[kMd5HexSize]) {
    const std::string hex = md5_hex(text_or_empty(first), text_or_empty(second));
    std::snprintf(out, kMd5HexSize, "%s", hex.c_str());
    return hex.empty() ? -1 : 0;
}

std::string md5_hex(std::string_view first, std::string_view second) {
    unsigned char digest[16];
    if (!digest_md5(first, second, digest)) {
        log_message(3, "Unable to compute MD5 digest");
        return {};
    }
    std::string hex(32, '0');
    static constexpr char kDigits[] = "0123456789abcdef";
    for (int i = 0; i < 16; ++i) {
        hex[2 * i] = kDigits[digest[i] >> 4];
        hex[2 * i + 1] = kDigits[digest[i] & 0x0f];
    }
    return hex;
}
