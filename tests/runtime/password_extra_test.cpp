// The mailbox password: the salt's seed, variables set but empty, and the
// environment children see after take_password.
#include "runtime/password_input.h"

#include <crypt.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string>

#include "runtime/child.h"
#include "runtime/password_child_test.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using PasswordExtraTest = PasswordChildTest;

// The eight salt characters that srand(seed) gives by the shifted draw,
// written out in floating point apart from the code under test.
std::string salt_for_seed(unsigned seed) {
    std::srand(seed);
    std::string salt;
    for (int i = 0; i < 8; ++i) {
        const int index = (static_cast<int>(std::floor(std::rand() * 64.0 / 2147483648.0)) + 1) % 64;
        salt += "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"[index];
    }
    return salt;
}

TEST_F(PasswordExtraTest, SaltIsTheShiftedDrawAfterSeedingWithTheCurrentTime) {
    setenv("QVT_PASSWORD", "seeded", 1);
    const std::string result = in_child([] {
        const std::time_t before = std::time(nullptr);
        const std::string hash = get_crypted_password();
        const std::time_t after = std::time(nullptr);
        return std::to_string(before) + " " + std::to_string(after) + " " + hash;
    });
    std::size_t used = 0;
    const long before = std::stol(result, &used);
    const long after = std::stol(result.substr(used + 1));
    const std::string hash = result.substr(result.rfind(' ') + 1);
    ASSERT_EQ(hash.substr(0, 3), "$1$") << hash;
    std::string candidates;
    bool found = false;
    for (long seed = before; seed <= after; ++seed) {
        candidates += salt_for_seed(static_cast<unsigned>(seed)) + " ";
        found = found || salt_for_seed(static_cast<unsigned>(seed)) == hash.substr(3, 8);
    }
    EXPECT_TRUE(found) << hash << " not among " << candidates;
    EXPECT_EQ(std::string(crypt("seeded", hash.c_str())), hash);
}

TEST_F(PasswordExtraTest, BothVariablesSetButEmptyGiveTheHashOfTheEmptyPassword) {
    setenv("QVT_PASSWORD", "", 1);
    setenv("QVT_CRYPTED_PASSWORD", "", 1);
    const std::string result = in_child([] {
        const std::string hash = get_crypted_password();
        const bool gone = std::getenv("QVT_PASSWORD") == nullptr && std::getenv("QVT_CRYPTED_PASSWORD") == nullptr;
        return hash + (gone ? " gone" : " left");
    });
    const std::string hash = result.substr(0, result.find(' '));
    ASSERT_EQ(hash.size(), 34u) << hash;
    EXPECT_EQ(hash.substr(0, 3), "$1$");
    EXPECT_EQ(std::string(crypt("", hash.c_str())), hash);
    EXPECT_EQ(result.substr(result.find(' ')), " gone");
}

TEST_F(PasswordExtraTest, AChildStartedAfterTakePasswordSeesNeitherVariable) {
    setenv("QVT_PASSWORD", "TakenPlainValue", 1);
    setenv("QVT_CRYPTED_PASSWORD", "TakenCryptedValue", 1);
    const std::string seen = in_child([] {
        std::string password;
        PasswordForm form = PasswordForm::Crypted;
        const int status = take_password(password, form);
        const ProcessResult child = run_process({"/usr/bin/env"});
        return std::to_string(status) + " " + password + "\n" + child.out;
    });
    EXPECT_EQ(seen.substr(0, seen.find('\n')), "0 TakenPlainValue");
    const std::string environment = seen.substr(seen.find('\n') + 1);
    EXPECT_NE(environment.find("PATH="), std::string::npos) << environment;
    EXPECT_EQ(environment.find("QVT_"), std::string::npos) << environment;
    EXPECT_EQ(environment.find("Taken"), std::string::npos) << environment;
}

}  // namespace
}  // namespace sorvane::test
