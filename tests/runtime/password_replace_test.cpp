// Replacing the password values taken from the environment, as each command
// of a batch does with its own: the new values are answered, an empty one
// counts as unset, and the environment is never involved.
#include "runtime/password_input.h"

#include <cstdlib>

#include "runtime/child.h"
#include "runtime/password_child_test.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

using PasswordReplaceTest = PasswordChildTest;

std::string answers() {
    std::string taken;
    PasswordForm form = PasswordForm::Plain;
    const int found = take_password(taken, form);
    return std::to_string(found) + " " + taken + " " + (form == PasswordForm::Plain ? "plain" : "crypted") + " [" +
           get_plain_password() + "]";
}

TEST_F(PasswordReplaceTest, ThePlainValueReplacesTheEnvironmentsValue) {
    setenv("QVT_PASSWORD", "from-environment", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  replace_password_input(std::string("from-batch"), std::nullopt);
                  return answers() + (std::getenv("QVT_PASSWORD") ? " in environment" : "");
              }),
              "0 from-batch plain [from-batch]");
}

TEST_F(PasswordReplaceTest, ACryptedValueAloneIsTakenAsCrypted) {
    setenv("QVT_PASSWORD", "from-environment", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  replace_password_input(std::nullopt, std::string("$6$salt$hash"));
                  return answers();
              }),
              "0 $6$salt$hash crypted []");
}

TEST_F(PasswordReplaceTest, EmptyOrMissingValuesLeaveNoPassword) {
    setenv("QVT_PASSWORD", "from-environment", 1);
    EXPECT_EQ(in_child([] {
                  take_password_variables();
                  replace_password_input(std::string(""), std::nullopt);
                  std::string taken = "untouched";
                  PasswordForm form = PasswordForm::Plain;
                  return std::to_string(take_password(taken, form)) + " " + taken + " [" + get_plain_password() + "]";
              }),
              "-1 untouched []");
}

}  // namespace
}  // namespace sorvane::test
