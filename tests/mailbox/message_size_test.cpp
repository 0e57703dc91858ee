// The size a Maildir message's name carries and whether it is trashed,
// read as the delivery agent reads them.
#include <gtest/gtest.h>

#include "mailbox/message_size.h"

namespace {

using crelm::mailbox::is_trashed_message_name;
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

TEST(MessageSizeFromName, LeadingDigitsAfterTheMarkerAreTheSize) {
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=2048,W=2100:2,S"), 2048);
    EXPECT_EQ(size_from_message_name("1700000000.M1P2.host,S=2048x"), 2048);
}

TEST(MessageSizeFromName, MarkerWithoutDigitsIsZero) {
    EXPECT_EQ(size_from_message_name("a,S=:2,S"), 0);
    EXPECT_EQ(size_from_message_name("a,S=abc:2,S"), 0);
    EXPECT_EQ(size_from_message_name("a,S=-5:2,S"), 0);
    EXPECT_EQ(size_from_message_name("a,S=+5"), 0);
    EXPECT_EQ(size_from_message_name("a,S= 5"), 0);
    EXPECT_EQ(size_from_message_name("a,S=0"), 0);
}

TEST(MessageSizeFromName, LastMarkerBeforeTheInfoPartWins) {
    EXPECT_EQ(size_from_message_name("a,S=10,S=20:2,"), 20);
    EXPECT_EQ(size_from_message_name("a,S=10,S=abc:2,"), 0);
    EXPECT_EQ(size_from_message_name("a,S=10x,S=20:2,"), 20);
    EXPECT_EQ(size_from_message_name("a,S=10:2,b,S=20"), 10);
    EXPECT_EQ(size_from_message_name("a:2,,S=20"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a:x,S=20"), std::nullopt);
    EXPECT_EQ(size_from_message_name("aS=20"), std::nullopt);
    EXPECT_EQ(size_from_message_name("a,s=20"), std::nullopt);
}

TEST(MessageSizeFromName, DigitsBeyond64BitsWrapAround) {
    EXPECT_EQ(size_from_message_name("a,S=9223372036854775807"), 9223372036854775807LL);
    EXPECT_EQ(size_from_message_name("a,S=9223372036854775808"), -9223372036854775807LL - 1);
    EXPECT_EQ(size_from_message_name("a,S=18446744073709551615"), -1);
    EXPECT_EQ(size_from_message_name("a,S=18446744073709551616"), 0);
    EXPECT_EQ(size_from_message_name("a,S=99999999999999999999"), 7766279631452241919LL);
}

TEST(TrashedMessageName, CapitalTAmongTheFlagsAfterTheFirstInfoMarker) {
    for (const char* name : {"a:2,T", "a,S=5:2,ST", "a:2,FST", "a:2,TS", "a:2,ZT", "a:2,PRSTa", "a:1,x:2,T",
                             "a::2,T", ":2,T", "a:2,T:2,S"})
        EXPECT_TRUE(is_trashed_message_name(name)) << name;
}

TEST(TrashedMessageName, FlagsEndAtAnythingButACapitalLetter) {
    for (const char* name : {"a", "aT", "a:2,", "a:2,S", "a:2,t", "a:1,T", "a:T", "a:2T", "a:2,1T", "a:2,aT",
                             "a:2, T", "a:2,,T", "a:2,S,T", "a:2,S:2,T", "a:2,:T", "a:3,T"})
        EXPECT_FALSE(is_trashed_message_name(name)) << name;
}

}  // namespace
