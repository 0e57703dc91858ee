// The text form of quotas in the mailbox quota store.
#include "stores/mailbox_quota_text.h"

#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

TEST(QuotaTextTest, BytesFollowedByB) {
    EXPECT_EQ(quota_text(1048576), "1048576B");
    EXPECT_EQ(quota_text(0), "0B");
    EXPECT_EQ(quota_text(-5), "0B");
    EXPECT_EQ(quota_text(INT64_MIN), "0B");
    EXPECT_EQ(quota_text(INT64_MAX), "9223372036854775807B");
}

class ParseQuotaTextTest : public LoggedStoreTest {};

TEST_F(ParseQuotaTextTest, DigitsTimesTheUnit) {
    EXPECT_EQ(parse_quota_text("7"), 7);
    EXPECT_EQ(parse_quota_text("7B"), 7);
    EXPECT_EQ(parse_quota_text("2KB"), 2048);
    EXPECT_EQ(parse_quota_text("2MB"), 2097152);
    EXPECT_EQ(parse_quota_text("2GB"), 2147483648);
    EXPECT_EQ(parse_quota_text("2TB"), 2199023255552);
    EXPECT_EQ(parse_quota_text("007KB"), 7168);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(ParseQuotaTextTest, UnknownUnitGivesZero) {
    EXPECT_EQ(parse_quota_text("5XB"), 0);
    EXPECT_EQ(parse_quota_text("5kb"), 0);
    EXPECT_EQ(parse_quota_text("5 B"), 0);
    EXPECT_EQ(parse_quota_text("5B "), 0);
    EXPECT_EQ(logged(), std::vector<std::string>{});
}

TEST_F(ParseQuotaTextTest, MissingDigitsAreAParseFailure) {
    EXPECT_EQ(parse_quota_text("abc"), -1);
    EXPECT_EQ(parse_quota_text(""), -1);
    EXPECT_EQ(parse_quota_text("-5B"), -1);
    EXPECT_EQ(logged(),
              (std::vector<std::string>{"3 Failed to parse quota value: stoll", "3 Failed to parse quota value: stoll",
                                        "3 Failed to parse quota value: stoll"}));
}

TEST_F(ParseQuotaTextTest, ValuesBeyondSixtyFourBitsAreAParseFailure) {
    EXPECT_EQ(parse_quota_text("9223372036854775807B"), INT64_MAX);
    EXPECT_EQ(parse_quota_text("9223372036854775808B"), -1);
    EXPECT_EQ(parse_quota_text("8388608TB"), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{"3 Failed to parse quota value: stoll",
                                                  "3 Failed to parse quota value: Numerical result out of range"}));
}

}  // namespace
}  // namespace sorvane::test
