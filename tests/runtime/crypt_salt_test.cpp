// Salt characters for crypt(3): alphabet and the shifted draw.
#include "runtime/crypt_salt.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "support/sandbox.h"

namespace sorvane::test {
namespace {

class CryptSaltTest : public SandboxTest {};

// The draw rule written out in floating point, independently of the code.
char expected_salt_char(int draw) {
    const int index = (static_cast<int>(std::floor(draw * 64.0 / 2147483648.0)) + 1) % 64;
    return "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"[index];
}

TEST_F(CryptSaltTest, EachCharacterIsTheShiftedDrawOfRand) {
    for (unsigned seed : {1u, 42u, 20261121u}) {
        std::srand(seed);
        std::string expected;
        for (int i = 0; i < 1000; ++i)
            expected += expected_salt_char(std::rand());
        std::srand(seed);
        std::string salt(1000, '\0');
        crypt_salt_fill(salt.data(), salt.size());
        EXPECT_EQ(salt, expected) << seed;
    }
}

TEST_F(CryptSaltTest, TopmostDrawGivesTheDotAndTheLowestGivesTheSlash) {
    EXPECT_EQ(expected_salt_char(2147483647), '.');
    EXPECT_EQ(expected_salt_char(0), '/');
}

TEST_F(CryptSaltTest, FillWritesExactlyCountCharactersFromTheAlphabet) {
    char buffer[12];
    std::memset(buffer, '!', sizeof buffer);
    crypt_salt_fill(buffer, 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_NE(std::strchr(kCryptSaltAlphabet, buffer[i]), nullptr) << buffer[i];
    EXPECT_EQ(buffer[8], '!');
    crypt_salt_fill(buffer, 0);
}

TEST_F(CryptSaltTest, Md5CryptSaltHasPrefixAndEightCharacters) {
    const std::string salt = md5_crypt_salt();
    ASSERT_EQ(salt.size(), 11u);
    EXPECT_EQ(salt.substr(0, 3), "$1$");
    EXPECT_EQ(salt.find_first_not_of(kCryptSaltAlphabet, 3), std::string::npos);
}

}  // namespace
}  // namespace sorvane::test
