// Reading a "maildirsize" header and a quota store text, and when the two
// are in step, as units.
#include <gtest/gtest.h>

#include "audit/mail_quota.h"

namespace crelm::audit {
namespace {

TEST(MaildirsizeHeaderTest, StorageQuotaOfEachForm) {
    EXPECT_EQ(maildirsize_storage_quota("1048576S,0C"), 1048576);
    EXPECT_EQ(maildirsize_storage_quota("0C,2048S"), 2048);
    EXPECT_EQ(maildirsize_storage_quota("100S"), 100);
    EXPECT_EQ(maildirsize_storage_quota("100C"), 0);
}

TEST(MaildirsizeHeaderTest, AnythingElseIsNoHeader) {
    for (const char* header : {"", "S", "-1S", "12", "12S,", "12X", "1048576 bytes", "12S, 0C",
                               "1234567890123456789S"})
        EXPECT_EQ(maildirsize_storage_quota(header), std::nullopt) << header;
}

TEST(StoredQuotaTest, DigitsWithTheStoresUnits) {
    EXPECT_EQ(stored_quota_bytes("1048576B"), 1048576);
    EXPECT_EQ(stored_quota_bytes("0B"), 0);
    EXPECT_EQ(stored_quota_bytes("12"), 12);
    EXPECT_EQ(stored_quota_bytes("2KB"), 2048);
    EXPECT_EQ(stored_quota_bytes("3MB"), 3145728);
    EXPECT_EQ(stored_quota_bytes("1GB"), 1073741824);
    EXPECT_EQ(stored_quota_bytes("1TB"), 1099511627776);
}

TEST(StoredQuotaTest, OtherTextsAndOverflowsDoNotRead) {
    for (const char* text : {"", "B", "-5B", "9999999999TB"})
        EXPECT_EQ(stored_quota_bytes(text), std::nullopt) << text;
    // An unknown unit multiplies by 0, as sorvane reads the store back.
    EXPECT_EQ(stored_quota_bytes("12PB"), 0);
    EXPECT_EQ(stored_quota_bytes("12 B"), 0);
}

TEST(QuotaInStepTest, NoRowIsNoLimit) {
    EXPECT_TRUE(quota_in_step(0, std::nullopt, 0));
    EXPECT_FALSE(quota_in_step(1, std::nullopt, 0));
}

TEST(QuotaInStepTest, ZeroRowIsNoLimitOrZero) {
    EXPECT_TRUE(quota_in_step(0, 0, 0));
    EXPECT_TRUE(quota_in_step(1, 0, 4096));
    EXPECT_FALSE(quota_in_step(2, 0, 0));
}

TEST(QuotaInStepTest, QuotaLessAtMostTheAttachmentsNow) {
    EXPECT_TRUE(quota_in_step(1000, 1000, 0));
    EXPECT_FALSE(quota_in_step(999, 1000, 0));
    EXPECT_TRUE(quota_in_step(900, 1000, 100));
    EXPECT_TRUE(quota_in_step(950, 1000, 100));
    EXPECT_FALSE(quota_in_step(899, 1000, 100));
    EXPECT_FALSE(quota_in_step(1001, 1000, 100));
    // Attachments as large as the quota leave the smallest quota, 1.
    EXPECT_TRUE(quota_in_step(1, 1000, 5000));
    EXPECT_FALSE(quota_in_step(0, 1000, 5000));
}

}  // namespace
}  // namespace crelm::audit
