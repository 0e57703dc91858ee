// MD5 digests written as lower-case hexadecimal text (lock-file names, keys).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

inline constexpr std::size_t kMd5HexSize = 33;  // 32 digits and the terminating zero

// Writes the MD5 digest of first followed by second as 32 lower-case hex
// digits ("%02x" per byte) and a terminating zero into out (33 bytes).
// Either text may be null or empty. Returns 0.
int md5_hex(const char* first, const char* second, char out[kMd5HexSize]);

// The same digest as a string.
std::string md5_hex(std::string_view first, std::string_view second = {});
