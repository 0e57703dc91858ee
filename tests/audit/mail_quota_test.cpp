// The audit of a mailbox's "maildirsize": its owner and mode, a header that
// is not one, a file too large to read, and its quota against the quota
// store as sorvane writes it (no limit, a zero quota, "@attachments"
// deducted).
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const std::string kQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";

std::string maildirsize_of(const std::string& name) { return home_of(name) + "/Maildir/maildirsize"; }

void set_quota(const std::string& name, const std::string& quota) {
    const ProcessResult result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=" + kDomain, "--mailname=" + name, "--disk-quota=" + quota});
    ASSERT_EQ(result.status, 0) << result.err;
}

std::string set_quota_line(const std::string& name, const std::string& quota) {
    return "sorvane --set-mailbox-disk-quota --domain-name=example.test --mailname=" + name + " --disk-quota=" + quota;
}

class QuotaAuditTest : public AuditTest {
protected:
    void SetUp() override {
        AuditTest::SetUp();
        set_quota("info", "1048576");
    }
};

TEST_F(QuotaAuditTest, AQuotaWithoutItsFileIsNotEnforced) {
    ASSERT_EQ(unlink(maildirsize_of("box").c_str()), 0);
    expect_findings({"error mailbox-maildirsize-missing box@example.test: "
                     "/var/qmail/mailnames/example.test/box/Maildir/maildirsize is missing: the quota of 5242880 "
                     "bytes is not enforced"});
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out), std::vector<std::string>{set_quota_line("box", "5242880")});
    run_repair_plan(planned.out);
    expect_findings({});
}

TEST_F(QuotaAuditTest, QuotaThatSorvaneWritesIsInStep) {
    ASSERT_TRUE(path_exists(maildirsize_of("info")));
    expect_findings({});
}

TEST_F(QuotaAuditTest, QuotaThatDiffersIsWrittenAgain) {
    write_popuser_file(maildirsize_of("info"), "5000S,0C\n          53           1\n", 0644);
    expect_findings({"error mailbox-quota-differs info@example.test: maildirsize holds a quota of 5000 bytes, the "
                     "quota store 1048576 bytes"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("info", "1048576")});
    EXPECT_EQ(quota_rows(), expected_quota_rows(kDomain));
}

TEST_F(QuotaAuditTest, ZeroRowGoesWithNoLimitOrAZeroQuota) {
    // john's row is "0B": what no limit and a quota of 0 are both stored as.
    for (const std::string header : {"0S,0C", "1S,0C", "0C"}) {
        write_popuser_file(maildirsize_of("john"), header + "\n          53           1\n", 0644);
        expect_findings({});
    }
    write_popuser_file(maildirsize_of("john"), "7S,0C\n          53           1\n", 0644);
    expect_findings({"error mailbox-quota-differs john@example.test: maildirsize holds a quota of 7 bytes, the "
                     "quota store 0 bytes"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("john", "-1")});
    EXPECT_EQ(quota_rows(), expected_quota_rows(kDomain));
}

TEST_F(QuotaAuditTest, AttachmentsAreDeductedAsSorvaneDoes) {
    write_popuser_file(home_of("box") + "/@attachments/part", std::string(100000, 'a'));
    set_quota("box", "5242880");
    expect_findings({});
    const std::string header = read_file(maildirsize_of("box")).substr(0, read_file(maildirsize_of("box")).find(','));
    // More attachments since: the quota written is still within the store's.
    write_popuser_file(home_of("box") + "/@attachments/more", std::string(50000, 'a'));
    expect_findings({});
    // Fewer: the mailbox is held below what the store gives it.
    fs::remove(home_of("box") + "/@attachments/part");
    expect_findings({"error mailbox-quota-differs box@example.test: maildirsize holds a quota of " +
                     header.substr(0, header.size() - 1) + " bytes, the quota store 5242880 bytes"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("box", "5242880")});
    // Above the store's quota is never in step.
    write_popuser_file(maildirsize_of("box"), "5242881S,0C\n          53           1\n", 0644);
    expect_findings({"error mailbox-quota-differs box@example.test: maildirsize holds a quota of 5242881 bytes, "
                     "the quota store 5242880 bytes"});
}

TEST_F(QuotaAuditTest, MailboxWithoutAQuotaRowHasNoLimit) {
    add_mailname("plain");
    const ProcessResult deleted = run_process(
        {"/usr/bin/sqlite3", kQuotaDb, "DELETE FROM mailbox_quota WHERE mailbox_name = 'plain';"});
    ASSERT_EQ(deleted.status, 0) << deleted.err;
    write_popuser_file(maildirsize_of("plain"), "0S,0C\n           0           0\n", 0644);
    expect_findings({});
    write_popuser_file(maildirsize_of("plain"), "5S,0C\n           0           0\n", 0644);
    expect_findings({"error mailbox-quota-differs plain@example.test: maildirsize holds a quota of 5 bytes, the "
                     "quota store no row"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("plain", "-1")});
}

TEST_F(QuotaAuditTest, MaildirsizeNotPopusersIsWrittenAgain) {
    ASSERT_EQ(chown(maildirsize_of("info").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(maildirsize_of("info").c_str(), 0640), 0);
    expect_findings({"error mailbox-maildirsize-owner info@example.test: "
                     "/var/qmail/mailnames/example.test/info/Maildir/maildirsize is 0:0 0640: the delivery agent "
                     "(popuser) must read and write it, nobody else write it"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("info", "1048576")});
}

TEST_F(QuotaAuditTest, MaildirsizeWritableByOthersIsWrittenAgain) {
    ASSERT_EQ(chmod(maildirsize_of("info").c_str(), 0666), 0);
    const std::string owner = std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid());
    expect_findings({"error mailbox-maildirsize-owner info@example.test: "
                     "/var/qmail/mailnames/example.test/info/Maildir/maildirsize is " + owner +
                     " 0666: the delivery agent (popuser) must read and write it, nobody else write it"});
    repair_and_expect_clean();
}

TEST_F(QuotaAuditTest, CorruptHeaderIsWrittenAgain) {
    write_popuser_file(maildirsize_of("info"), "1048576 bytes\n", 0644);
    expect_findings({"error mailbox-maildirsize-corrupt info@example.test: "
                     "/var/qmail/mailnames/example.test/info/Maildir/maildirsize does not start with a quota header"});
    EXPECT_EQ(repair_and_expect_clean(), std::vector<std::string>{set_quota_line("info", "1048576")});
}

TEST_F(QuotaAuditTest, OversizedMaildirsizeIsWrittenAgain) {
    std::string text = "1048576S,0C\n";
    while (text.size() <= 64 * 1024)
        text += "          53           1\n";
    write_popuser_file(maildirsize_of("info"), text, 0644);
    expect_findings({"warning mailbox-maildirsize-unreadable info@example.test: "
                     "/var/qmail/mailnames/example.test/info/Maildir/maildirsize: too large"});
    repair_and_expect_clean();
}

TEST_F(QuotaAuditTest, DirectoryAtMaildirsizeNeedsAPerson) {
    fs::remove(maildirsize_of("info"));
    fs::create_directory(maildirsize_of("info"));
    expect_findings({"error mailbox-maildirsize-unreadable info@example.test: "
                     "/var/qmail/mailnames/example.test/info/Maildir/maildirsize: not a regular file"});
    expect_needs_a_person({"needs a person: mailbox-maildirsize-unreadable info@example.test"});
}

}  // namespace
}  // namespace sorvane::test
