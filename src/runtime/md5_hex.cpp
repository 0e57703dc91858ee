#include "runtime/md5_hex.h"

#include <md5.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

std::string_view text_or_empty(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// The message digest library's own MD5: unlike libcrypto's, it needs no
// set-up of providers and configuration before its first digest, which
// would cost a command that only takes locks more than its edit of a
// small file.
void digest_md5(std::string_view first, std::string_view second, std::uint8_t (&digest)[MD5_DIGEST_LENGTH]) {
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, reinterpret_cast<const std::uint8_t*>(first.data()), first.size());
    MD5Update(&context, reinterpret_cast<const std::uint8_t*>(second.data()), second.size());
    MD5Final(digest, &context);
}

}  // namespace

int md5_hex(const char* first, const char* second, char out[kMd5HexSize]) {
    const std::string hex = md5_hex(text_or_empty(first), text_or_empty(second));
    std::snprintf(out, kMd5HexSize, "%s", hex.c_str());
    return 0;
}

std::string md5_hex(std::string_view first, std::string_view second) {
    std::uint8_t digest[MD5_DIGEST_LENGTH];
    digest_md5(first, second, digest);
    std::string hex(2 * MD5_DIGEST_LENGTH, '0');
    static constexpr char kDigits[] = "0123456789abcdef";
    for (int i = 0; i < MD5_DIGEST_LENGTH; ++i) {
        hex[2 * i] = kDigits[digest[i] >> 4];
        hex[2 * i + 1] = kDigits[digest[i] & 0x0f];
    }
    return hex;
}
