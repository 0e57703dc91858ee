// A catch-all address needs a local part and a domain.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qmail/catchall.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

class CatchallAddressTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
    }
    static std::string default_file() { return std::string(kMailnamesDir) + "/example.test/.qmail-default"; }
};

TEST(CatchallAddressShape, NeedsBothPartsAroundTheFirstAt) {
    EXPECT_TRUE(has_local_part_and_domain("info@example.test"));
    EXPECT_TRUE(has_local_part_and_domain("a@b"));
    EXPECT_FALSE(has_local_part_and_domain("info"));
    EXPECT_FALSE(has_local_part_and_domain("@example.test"));
    EXPECT_FALSE(has_local_part_and_domain("info@"));
    EXPECT_FALSE(has_local_part_and_domain("@"));
    EXPECT_FALSE(has_local_part_and_domain(""));
}

TEST_F(CatchallAddressTest, AddressWithoutLocalPartOrDomainIsRefusedAndNothingWritten) {
    write_file(default_file(), "|bouncesaying kept\n");
    write_file(kRejectList, "example.test\n");
    const std::vector<std::string> addresses{"@example.net", "info@", "info", "@"};
    for (const std::string& address : addresses)
        EXPECT_EQ(set_catchall("example.test", address, RejectCleanup::domain_only), -1) << address;
    EXPECT_EQ(read_file(default_file()), "|bouncesaying kept\n");
    EXPECT_EQ(read_file(kRejectList), "example.test\n");
    EXPECT_EQ(logged(), std::vector<std::string>(addresses.size(),
                                                 "3 Catch-all address for example.test refused: it needs a local "
                                                 "part and a domain"));
}

}  // namespace
}  // namespace sorvane::test
