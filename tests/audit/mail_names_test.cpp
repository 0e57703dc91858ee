// The audit of mail names against their homes: a record without its home, a
// home without its record, a mail alias record whose home is missing, and
// what --domain leaves out.
#include <gtest/gtest.h>

#include <filesystem>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

using MailNamesAuditTest = AuditTest;

TEST_F(MailNamesAuditTest, MailNamesThatSorvaneAddsAuditClean) {
    add_mailname("plain");
    add_mailname("sized", {"--disk-quota=2097152"});
    ASSERT_TRUE(path_exists(home_of("sized") + "/Maildir/maildirsize"));
    expect_findings({});
}

TEST_F(MailNamesAuditTest, RecordWithoutHomeIsMadeWholeAgain) {
    add_mailname("plain");
    fs::remove_all(home_of("plain"));
    expect_findings({"error mailname-home-missing plain@example.test: assign has its record but its home "
                     "/var/qmail/mailnames/example.test/plain is missing"});
    EXPECT_EQ(repair_and_expect_clean(),
              std::vector<std::string>{"sorvane --add-mailname --domain-name=example.test --mailname=plain"});
}

TEST_F(MailNamesAuditTest, RecordWithoutHomeKeepsTheStoredQuota) {
    add_mailname("sized", {"--disk-quota=2097152"});
    fs::remove_all(home_of("sized"));
    expect_findings({"error mailname-home-missing sized@example.test: assign has its record but its home "
                     "/var/qmail/mailnames/example.test/sized is missing"});
    EXPECT_EQ(repair_and_expect_clean(),
              std::vector<std::string>{
                  "sorvane --add-mailname --domain-name=example.test --mailname=sized --disk-quota=2097152"});
    std::string rows = expected_quota_rows(kDomain);
    rows.insert(rows.find(kNeighbour + "|"), quota_row(kDomain, "sized", "2097152B"));
    EXPECT_EQ(quota_rows(), rows);
}

TEST_F(MailNamesAuditTest, MailboxWithoutHomeNeedsAPerson) {
    fs::remove_all(home_of("john"));
    expect_findings({"error mail-alias-home-missing j.doe@example.test: assign delivers it to "
                     "/var/qmail/mailnames/example.test/john, which is missing",
                     "error mailname-home-missing john@example.test: assign has its record but its home "
                     "/var/qmail/mailnames/example.test/john is missing"});
    expect_needs_a_person({"needs a person: mailname-home-missing john@example.test",
                           "needs a person: mail-alias-home-missing j.doe@example.test"});
}

TEST_F(MailNamesAuditTest, HomeWithoutRecordGetsItsRecordBack) {
    add_mailname("plain");
    remove_assign_line(mailname_record(kDomain, "plain", "plain"));
    expect_findings({"error mailname-record-missing plain@example.test: the home "
                     "/var/qmail/mailnames/example.test/plain has no \"=\" record in assign: its mail goes to the "
                     "domain's default"});
    EXPECT_EQ(repair_and_expect_clean(),
              std::vector<std::string>{"sorvane --add-mailname --domain-name=example.test --mailname=plain"});
}

TEST_F(MailNamesAuditTest, HomeWithADeliveryLineButNoRecordNeedsAPerson) {
    // The mailbox's ".qmail" would be written anew without its delivery
    // line by --add-mailname: mail would be discarded.
    remove_assign_line(mailname_record(kDomain, "box", "box"));
    expect_findings({"error mailname-record-missing box@example.test: the home "
                     "/var/qmail/mailnames/example.test/box has no \"=\" record in assign: its mail goes to the "
                     "domain's default"});
    expect_needs_a_person({"needs a person: mailname-record-missing box@example.test"});
}

TEST_F(MailNamesAuditTest, AliasRecordOfAMailNameThatIsGoneIsRemoved) {
    const std::string assign = read_file("/var/qmail/users/assign");
    write_file("/var/qmail/users/assign", mailname_record(kDomain, "stray", "gone") + assign, 0644);
    mark_assign_compiled();
    expect_findings({"error mail-alias-home-missing stray@example.test: assign delivers it to "
                     "/var/qmail/mailnames/example.test/gone, which is missing"});
    repair_and_expect_clean();
    EXPECT_EQ(read_file("/var/qmail/users/assign"), assign);
}

TEST_F(MailNamesAuditTest, LinkWhereAHomeWouldBeNeedsAPerson) {
    add_mailname("plain");
    fs::remove_all(home_of("plain"));
    fs::create_directory_symlink("/etc", home_of("plain"));
    expect_findings({"error mailname-home-missing plain@example.test: assign has its record but its home "
                     "/var/qmail/mailnames/example.test/plain is missing",
                     "warning mailname-tree-link /var/qmail/mailnames/example.test/plain: a symbolic link where a "
                     "mail name's home would be"});
}

TEST_F(MailNamesAuditTest, DomainScopeLeavesOtherDomainsOut) {
    fs::remove_all(home_of("john"));
    expect_findings({}, {"--domain=" + kNeighbour});
    fs::remove_all(home_of("info", kNeighbour));
    expect_findings({"error mailname-home-missing info@neighbour.test: assign has its record but its home "
                     "/var/qmail/mailnames/neighbour.test/info is missing"},
                    {"--domain=NEIGHBOUR.test"});
}

}  // namespace
}  // namespace sorvane::test
