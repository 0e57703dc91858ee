#include "runtime/crypt_salt.h"

#include <cstdlib>
#include <ctime>

void crypt_salt_fill(char* buffer, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned long long draw = static_cast<unsigned long long>(std::rand());
        buffer[i] = kCryptSaltAlphabet[((draw * 64 >> 31) + 1) % 64];
    }
}

std::string md5_crypt_salt() {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    std::string salt = "$1$";
    salt.resize(3 + 8);
    crypt_salt_fill(salt.data() + 3, 8);
    return salt;
}
