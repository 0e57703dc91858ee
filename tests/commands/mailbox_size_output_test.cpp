// What --get-mailbox-size prints for a size: digits only, or nothing.
#include <gtest/gtest.h>

#include <sstream>

#include "commands/mailbox_size_output.h"

namespace sorvane::test {
namespace {

using crelm::mail::sorvane_commands::print_mailbox_size;

TEST(MailboxSizeOutputTest, DigitsWithoutANewline) {
    std::ostringstream out;
    EXPECT_EQ(print_mailbox_size(out, 123456789), 0);
    EXPECT_EQ(out.str(), "123456789");
}

TEST(MailboxSizeOutputTest, ZeroIsPrinted) {
    std::ostringstream out;
    EXPECT_EQ(print_mailbox_size(out, 0), 0);
    EXPECT_EQ(out.str(), "0");
}

TEST(MailboxSizeOutputTest, NegativeSizePrintsNothingAndFails) {
    std::ostringstream out;
    EXPECT_EQ(print_mailbox_size(out, -1), 1);
    EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace sorvane::test
