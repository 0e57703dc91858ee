// Salt characters for crypt(3) hashes.
#pragma once

#include <cstddef>
#include <string>

// The 64 characters a salt is drawn from.
inline constexpr const char* kCryptSaltAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// Writes count salt characters (no terminator) drawn with rand(): each is
// kCryptSaltAlphabet[(floor(rand() * 64 / 2^31) + 1) % 64]. The "+ 1" shifts
// every draw one place along the alphabet, so "." comes only from the topmost
// draws; stored hashes were made this way and the selection is kept as it is.
// The caller seeds the generator.
void crypt_salt_fill(char* buffer, std::size_t count);

// An MD5-crypt salt: "$1$" and eight salt characters, after seeding the
// generator with the current time.
std::string md5_crypt_salt();
