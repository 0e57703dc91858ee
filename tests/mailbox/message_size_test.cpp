// The size a Maildir message's name carries.
#include <gtest/gtest.h>

#include "mailbox/message_size.h"

namespace {

using crelm::mailbox::size_from_message_name;

TEST(MessageSizeFromName, SizeBeforeTheInfoPartCounts) {
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=2048:2,S"), 2048);
}

TEST(MessageSizeFromName, SizeAtTheEndOfTheNameCounts) {
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=18"), 18);
}

TEST(MessageSizeFromName, NameWithoutSizeHasNone) {
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host:2,S"), std::nullopt);
    EXPECT_EQ(size_from_message_name(""), std::nullopt);
    EXPECT_EQ(size_from_message_name(",S"), std::nullopt);
}

TEST(MessageSizeFromName, SizeFollowedByAnythingButColonIsIgnored) {
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=2048,W=2100:2,S"), std::nullopt);
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=2048x"), std::nullopt);
}

TEST(MessageSizeFromName, LastWellFormedSizeWins) {
    EXPECT_EQ(size_from_message_name("a,S=10:2,b,S=20"), 20);
    EXPECT_EQ(size_from_message_name("a,S=10:2,b,S=20x"), 10);
    EXPECT_EQ(size_from_message_name("a,S=10,S=20:2,"), 20);
}

TEST(MessageSizeFromName, OutOfRangeSizeIsSkipped) {
    EXPECT_EQ(size_from_message_name("a,S=9223372036854775807"), 9223372036854775807LL);
    EXPECT_EQ(size_from_message_name("a,S=9223372036854775808"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a,S=5:x,S=99999999999999999999999"), 5);
}

TEST(MessageSizeFromName, SizeWithoutDigitsOrWithSignIsIgnored) {
    EXPECT_EQ(size_from_message_name("a,S=:2,S"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a,S=-5:2,S"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a,S=+5"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a,S=0"), 0);
}

}  // namespace
