// The mailbox password from the environment: hashing, taking, and its
// removal from the environment. Each test reads the password in a child, as
// the program would, because the values are kept for the life of a process.
#include "runtime/password_input.h"

#include <crypt.h>

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "runtime/child.h"
#include "runtime/password_child_test.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

constexpr const char* kAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

using PasswordInputTest = PasswordChildTest;

bool is_md5_crypt_hash(const std::string& hash) {
    return hash.size() == 34 && hash.substr(0, 3) == "$1$" && hash[11] == '$' &&
           hash.substr(3, 8).find_first_not_of(kAlphabet) == std::string::npos;
}

// The hash of password with the salt of hash, by libcrypt.
std::string rehash(const std::string& password, const std::string& hash) {
    return crypt(password.c_str(), hash.c_str());
}

// The hash by an independent MD5-crypt implementation.
std::string openssl_md5_crypt(const std::string& password, const std::string& salt) {
    const auto result = run_process({"/usr/bin/openssl", "passwd", "-1", "-salt", salt, password});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out.substr(0, result.out.find('\n'));
}

std::string environment_state() {
    std::string state;
    for (const char* name : {"QVT_PASSWORD", "QVT_CRYPTED_PASSWORD"})
        state += std::string(name) + (std::getenv(name) ? "=set;" : "=unset;");
    return state;
}

TEST_F(PasswordInputTest, PlainPasswordIsHashedWithMd5Crypt) {
    setenv("QVT_PASSWORD", "s3cret pass", 1);
    const std::string hash = in_child([] { return get_crypted_password(); });
    ASSERT_TRUE(is_md5_crypt_hash(hash)) << hash;
    EXPECT_EQ(rehash("s3cret pass", hash), hash);
    EXPECT_EQ(openssl_md5_crypt("s3cret pass", hash.substr(3, 8)), hash);
}

TEST_F(PasswordInputTest, WithBothSetThePlainOneIsUsedAndBothLeaveTheEnvironment) {
    setenv("QVT_PASSWORD", "plain-one", 1);
    setenv("QVT_CRYPTED_PASSWORD", "$1$abcdefgh$ignoredignoredignored", 1);
    const std::string result = in_child([] {
        const std::string hash = get_crypted_password();
        return hash + "\n" + environment_state();
    });
    const std::string hash = result.substr(0, result.find('\n'));
    ASSERT_TRUE(is_md5_crypt_hash(hash)) << hash;
    EXPECT_EQ(rehash("plain-one", hash), hash);
    EXPECT_EQ(result.substr(result.find('\n') + 1), "QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, TakingTheVariablesEmptiesTheEnvironmentAndKeepsBothValues) {
    setenv("QVT_PASSWORD", "plain-one", 1);
    setenv("QVT_CRYPTED_PASSWORD", "$1$abcdefgh$kept", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  const std::string state = environment_state();
                  std::string taken;
                  PasswordForm form = PasswordForm::Crypted;
                  const int found = take_password(taken, form);
                  return state + " " + std::to_string(found) + " " + taken + " " +
                         (form == PasswordForm::Plain ? "plain " : "crypted ") + get_plain_password();
              }),
              "QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset; 0 plain-one plain plain-one");
}

TEST_F(PasswordInputTest, TakenCryptedValueIsKeptWithoutThePlainOne) {
    setenv("QVT_CRYPTED_PASSWORD", "$1$abcdefgh$kept", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  return environment_state() + " " + get_crypted_password();
              }),
              "QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset; $1$abcdefgh$kept");
}

TEST_F(PasswordInputTest, WithNeitherSetTheEmptyPasswordIsHashed) {
    const std::string hash = in_child([] { return get_crypted_password(); });
    ASSERT_TRUE(is_md5_crypt_hash(hash)) << hash;
    EXPECT_EQ(rehash("", hash), hash);
    EXPECT_EQ(openssl_md5_crypt("", hash.substr(3, 8)), hash);
}

TEST_F(PasswordInputTest, EmptyPlainPasswordFallsToTheCryptedOne) {
    setenv("QVT_PASSWORD", "", 1);
    setenv("QVT_CRYPTED_PASSWORD", "$1$abcdefgh$0123456789abcdefghijkl", 1);
    EXPECT_EQ(in_child([] {
                  const std::string hash = get_crypted_password();
                  return hash + " " + environment_state();
              }),
              "$1$abcdefgh$0123456789abcdefghijkl QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, CryptedPasswordIsCutAt4095Characters) {
    setenv("QVT_CRYPTED_PASSWORD", std::string(5000, 'h').c_str(), 1);
    EXPECT_EQ(in_child([] { return get_crypted_password(); }), std::string(4095, 'h'));
}

TEST_F(PasswordInputTest, HashIsComputedOnceAndKept) {
    setenv("QVT_PASSWORD", "first", 1);
    const std::string result = in_child([] {
        const std::string first = get_crypted_password();
        setenv("QVT_PASSWORD", "second", 1);
        const std::string again = get_crypted_password();
        return std::string(first == again ? "same " : "different ") + (std::getenv("QVT_PASSWORD") ? "left" : "gone");
    });
    EXPECT_EQ(result, "same left");
}

TEST_F(PasswordInputTest, PlainPasswordIsReturnedAndRemoved) {
    setenv("QVT_PASSWORD", "pläin pass", 1);
    EXPECT_EQ(in_child([] {
                  const std::string first = get_plain_password();
                  const std::string again = get_plain_password();
                  return first + "|" + again + "|" + environment_state();
              }),
              "pläin pass|pläin pass|QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, PlainPasswordIsEmptyWhenUnsetAndCutAt4095) {
    EXPECT_EQ(in_child([] { return "[" + get_plain_password() + "]"; }), "[]");
    setenv("QVT_PASSWORD", std::string(5000, 'p').c_str(), 1);
    EXPECT_EQ(in_child([] { return get_plain_password(); }), std::string(4095, 'p'));
}

TEST_F(PasswordInputTest, PlainAndCryptedReadsAgreeInEitherOrder) {
    setenv("QVT_PASSWORD", "either order", 1);
    const std::string hash = in_child([] {
        const std::string plain = get_plain_password();
        return plain + "\n" + get_crypted_password();
    });
    EXPECT_EQ(hash.substr(0, hash.find('\n')), "either order");
    const std::string crypted = hash.substr(hash.find('\n') + 1);
    EXPECT_EQ(rehash("either order", crypted), crypted);
}

std::string taken() {
    std::string out = "untouched";
    PasswordForm form = PasswordForm::Crypted;
    const int status = take_password(out, form);
    return std::to_string(status) + " " + out + " " + (form == PasswordForm::Plain ? "plain" : "crypted") + " " +
           environment_state();
}

TEST_F(PasswordInputTest, TakePasswordPrefersThePlainOne) {
    setenv("QVT_PASSWORD", "plain", 1);
    setenv("QVT_CRYPTED_PASSWORD", "$1$x$y", 1);
    EXPECT_EQ(in_child(taken), "0 plain plain QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, TakePasswordWithEmptyPlainFallsThroughToCrypted) {
    setenv("QVT_PASSWORD", "", 1);
    setenv("QVT_CRYPTED_PASSWORD", "$1$x$y", 1);
    EXPECT_EQ(in_child(taken), "0 $1$x$y crypted QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, TakePasswordWithNeitherSetFails) {
    setenv("QVT_CRYPTED_PASSWORD", "", 1);
    EXPECT_EQ(in_child(taken), "-1 untouched crypted QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset;");
}

TEST_F(PasswordInputTest, ChildrenAndProcEnvironDoNotShowThePassword) {
    setenv("QVT_PASSWORD", "TopSecretValue", 1);
    setenv("QVT_CRYPTED_PASSWORD", "CryptedSecretValue", 1);
    const std::string result = in_child([] {
        get_crypted_password();
        const auto child = run_process({"/bin/sh", "-c", "cat /proc/self/environ; env"});
        return child.out + "\n---\n" + read_file("/proc/self/environ");
    });
    EXPECT_EQ(result.find("TopSecretValue"), std::string::npos) << result;
    EXPECT_EQ(result.find("CryptedSecretValue"), std::string::npos) << result;
    EXPECT_EQ(result.find("QVT_PASSWORD"), std::string::npos) << result;
    EXPECT_NE(result.find("PATH="), std::string::npos) << result;
}

// Turns an entry of the process's initial environment block (the memory that
// /proc/self/environ shows) into name=value, as if the panel had started the
// process with it. The entry must be long enough.
bool plant_in_initial_environment(const std::string& name_value) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::string(*entry).rfind("SORVANE_SANDBOX=", 0) == 0 && std::strlen(*entry) >= name_value.size()) {
            std::memcpy(*entry, name_value.c_str(), name_value.size() + 1);
            return true;
        }
    }
    return false;
}

TEST_F(PasswordInputTest, PasswordIsWipedFromTheProcessEnvironmentBlock) {
    const std::string seen = in_child([] {
        if (!plant_in_initial_environment("QVT_PASSWORD=FromThePanel42"))
            return std::string("no entry to plant in");
        std::string result = read_file("/proc/self/environ") + "\n---\n";
        result += get_plain_password() + "\n---\n";
        return result + read_file("/proc/self/environ");
    });
    const auto first = seen.find("\n---\n");
    ASSERT_NE(first, std::string::npos) << seen;
    const auto second = seen.find("\n---\n", first + 1);
    EXPECT_NE(seen.substr(0, first).find("QVT_PASSWORD=FromThePanel42"), std::string::npos);
    EXPECT_EQ(seen.substr(first + 5, second - first - 5), "FromThePanel42");
    EXPECT_EQ(seen.find("FromThePanel42", second), std::string::npos) << seen.substr(second);
}

}  // namespace
}  // namespace sorvane::test
