// The text of a freshly written maildirsize file.
#include <gtest/gtest.h>

#include "mailbox/maildirsize_format.h"

namespace {

using crelm::mailbox::maildirsize_text;
using crelm::mailbox::storage_quota_to_write;

TEST(StorageQuotaToWrite, NegativeMeansNoLimitWrittenAsZero) {
    EXPECT_EQ(storage_quota_to_write(-1), 0);
    EXPECT_EQ(storage_quota_to_write(-123456), 0);
}

TEST(StorageQuotaToWrite, ZeroIsWrittenAsOneByte) { EXPECT_EQ(storage_quota_to_write(0), 1); }

TEST(StorageQuotaToWrite, PositiveIsWrittenAsIs) { EXPECT_EQ(storage_quota_to_write(1048576), 1048576); }

TEST(MaildirsizeText, TwoLinesWithTwelveColumnFields) {
    EXPECT_EQ(maildirsize_text(1, 0, 0, 0), "1S,0C\n           0           0\n");
    EXPECT_EQ(maildirsize_text(1048576, 0, 2048, 3), "1048576S,0C\n        2048           3\n");
}

TEST(MaildirsizeText, WiderNumbersAreNotCut) {
    EXPECT_EQ(maildirsize_text(0, 0, 1234567890123LL, 7), "0S,0C\n1234567890123           7\n");
}

TEST(MaildirsizeText, LargestNumbersFit) {
    const long long max = 9223372036854775807LL;
    EXPECT_EQ(maildirsize_text(max, max, max, max),
              "9223372036854775807S,9223372036854775807C\n92233720368547758079223372036854775807\n");
}

}  // namespace
