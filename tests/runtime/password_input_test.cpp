// The mailbox password from the environment: taking it, and its removal
// from the environment. Each test reads the password in a child, as
// the program would, because the values are kept for the life of a process.
#include "runtime/password_input.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "runtime/child.h"
#include "runtime/password_child_test.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using PasswordInputTest = PasswordChildTest;

std::string environment_state() {
    std::string state;
    for (const char* name : {"QVT_PASSWORD", "QVT_CRYPTED_PASSWORD"})
        state += std::string(name) + (std::getenv(name) ? "=set;" : "=unset;");
    return state;
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

TEST_F(PasswordInputTest, TakenCryptedValueIsKeptAsGivenWithoutThePlainOne) {
    setenv("QVT_CRYPTED_PASSWORD", "$1$abcdefgh$kept", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  std::string taken;
                  PasswordForm form = PasswordForm::Plain;
                  const int found = take_password(taken, form);
                  return environment_state() + " " + std::to_string(found) + " " + taken +
                         (form == PasswordForm::Crypted ? " crypted" : " plain");
              }),
              "QVT_PASSWORD=unset;QVT_CRYPTED_PASSWORD=unset; 0 $1$abcdefgh$kept crypted");
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
        take_password_variables();
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
