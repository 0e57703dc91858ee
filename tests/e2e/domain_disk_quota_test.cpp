// --set-domain-disk-quota from the seeded server: the quota store and the
// mailboxes' "maildirsize" files of the mail names the panel lists.
#include <sys/stat.h>

#include <cstdio>

#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

class DomainDiskQuotaTest : public DomainCommandTest {
protected:
    // The quota header of a seeded mailbox: what is left of quota once its
    // "@attachments" directory is deducted.
    static std::string header(const std::string& mailname, long long quota) {
        if (quota < 0)
            return "0S,0C";
        struct stat attachments {};
        EXPECT_EQ(lstat((kMailnamesDir + "/example.test/" + mailname + "/@attachments").c_str(), &attachments), 0);
        return std::to_string(quota - attachments.st_size) + "S,0C";
    }
    // The "maildirsize" of a seeded mailbox (one message) for a quota header.
    static std::string maildirsize(const std::string& header) {
        char sizes[64];
        std::snprintf(sizes, sizeof sizes, "%12ld%12lld\n", static_cast<long>(seeded_message_size()), 1LL);
        return header + "\n" + sizes;
    }
    static std::string maildirsize_line(const std::string& mailname, const std::string& header) {
        std::string content = maildirsize(header);
        std::string escaped;
        for (const char c : content)
            escaped += c == '\n' ? std::string("\\n") : std::string(1, c);
        return kDomain + "/" + mailname + "/Maildir/maildirsize f " + std::to_string(popuser_uid()) + ":" +
               std::to_string(popuser_gid()) + " 0644 " + escaped + "\n";
    }
};

TEST_F(DomainDiskQuotaTest, ListedMailNamesGetTheDomainQuotaInStoreAndMaildir) {
    expect_silent_success(run_sorvane({"--set-domain-disk-quota", "--domain-name=example.test",
                                       "--disk-quota=3145728", "--mail-addresses=john,j.doe;box,abuse"}));
    ServerState expected = seeded_server_state();
    expected.quota_rows = quota_row(kDomain, "box", "3145728B") + quota_row(kDomain, "info", "1048576B") +
                          quota_row(kDomain, "john", "3145728B") + expected_quota_rows("").substr(0);
    expected.mail_tree = sorted_lines(expected.mail_tree + maildirsize_line("john", header("john", 3145728)) +
                                      maildirsize_line("box", header("box", 3145728)));
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainDiskQuotaTest, NegativeQuotaIsUnlimited) {
    expect_silent_success(run_sorvane(
        {"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=-1", "--mail-addresses=john"}));
    EXPECT_EQ(quota_rows(), quota_row(kDomain, "box", "5242880B") + quota_row(kDomain, "info", "1048576B") +
                                quota_row(kDomain, "john", "0B") + expected_quota_rows(""));
    EXPECT_EQ(read_file(kMailnamesDir + "/example.test/john/Maildir/maildirsize"), maildirsize("0S,0C"));
}

TEST_F(DomainDiskQuotaTest, DocumentMailNamesKeepTheirOwnQuota) {
    const auto result = run_sorvane_with_input(
        {"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=7000", "--wait-stdin"},
        R"({"domain": {"name": "example.test", "mails": [{"name": "info", "mbox_quota": 3, "mbox_quota_unit": "MB"},
            {"name": "john"}]}})");
    expect_silent_success(result);
    EXPECT_EQ(quota_rows(), quota_row(kDomain, "box", "5242880B") + quota_row(kDomain, "info", "3145728B") +
                                quota_row(kDomain, "john", "7000B") + expected_quota_rows(""));
    EXPECT_EQ(read_file(kMailnamesDir + "/example.test/info/Maildir/maildirsize"), maildirsize(header("info", 3145728)));
    EXPECT_EQ(read_file(kMailnamesDir + "/example.test/john/Maildir/maildirsize"), maildirsize(header("john", 7000)));
}

TEST_F(DomainDiskQuotaTest, FailingQuotaStoreEndsWith255AndTouchesNoMaildir) {
    refuse_store_writes(kQuotaDb, "mailbox_quota", "INSERT");
    SyslogCapture capture;
    const auto result = run_sorvane(
        {"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=10", "--mail-addresses=john"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(messages_starting(capture, "Unable to set mailbox quotas"),
              std::vector<std::string>{"Unable to set mailbox quotas in userdb for domain 'example.test'"});
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(DomainDiskQuotaTest, MailNameWithoutMailboxEndsWith1AfterTheOthers) {
    const auto result = run_sorvane({"--set-domain-disk-quota", "--domain-name=example.test", "--disk-quota=4096",
                                     "--mail-addresses=ghost;john"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(read_file(kMailnamesDir + "/example.test/john/Maildir/maildirsize"), maildirsize(header("john", 4096)));
    EXPECT_EQ(quota_rows(), quota_row(kDomain, "box", "5242880B") + quota_row(kDomain, "ghost", "4096B") +
                                quota_row(kDomain, "info", "1048576B") + quota_row(kDomain, "john", "4096B") +
                                expected_quota_rows(""));
}

}  // namespace
}  // namespace sorvane::test
