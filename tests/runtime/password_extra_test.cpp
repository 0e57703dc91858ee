// The mailbox password: variables set but empty, and the environment
// children see after take_password.
#include "runtime/password_input.h"

#include <cstdlib>
#include <string>

#include "runtime/child.h"
#include "runtime/password_child_test.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using PasswordExtraTest = PasswordChildTest;

TEST_F(PasswordExtraTest, BothVariablesSetButEmptyGiveNoPasswordAndLeaveTheEnvironment) {
    setenv("QVT_PASSWORD", "", 1);
    setenv("QVT_CRYPTED_PASSWORD", "", 1);
    const std::string result = in_child([] {
        std::string password = "untouched";
        PasswordForm form = PasswordForm::Plain;
        const int status = take_password(password, form);
        const bool gone = std::getenv("QVT_PASSWORD") == nullptr && std::getenv("QVT_CRYPTED_PASSWORD") == nullptr;
        return std::to_string(status) + " " + password + (gone ? " gone" : " left");
    });
    EXPECT_EQ(result, "-1 untouched gone");
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
