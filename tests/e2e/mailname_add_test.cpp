// --add-mailname and --set-mailbox-disk-quota from the seeded server: the
// quota store, the assign record, the new tree with its "maildirsize", and
// qmail-newu, and how the quota store's failure ends them.
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

// Makes every write of a quota row fail at its own statement.
void refuse_quota_rows() {
    const auto result = run_process({"/usr/bin/sqlite3", "/var/lib/crelm/mail/userdb/userdb.db",
                                     "CREATE TRIGGER refuse BEFORE INSERT ON mailbox_quota "
                                     "BEGIN SELECT RAISE(ABORT, 'refused'); END;"});
    ASSERT_EQ(result.status, 0) << result.err;
}

const std::string kSeededMessage = "From: someone@neighbour.test\nSubject: hello\n\nhello\n";
const long long kSeededBytes = static_cast<long long>(kSeededMessage.size());

class AddMailnameTest : public SeededServerTest {
protected:
    // What adding "new" to example.test with that quota row and tree gives.
    void expect_new_mailname(const std::string& quota_text, const std::string& maildirsize) {
        expected.assign = mailname_record(kDomain, "new", "new") + expected.assign;
        expected.mail_tree = with_lines(expected.mail_tree, new_mail_tree_lines(kDomain, "new", "| true\n", maildirsize));
        expected.quota_rows = sorted_lines(expected.quota_rows + quota_row(kDomain, "new", quota_text));
        expected.qmail_newu_calls = {""};
    }
};

TEST_F(AddMailnameTest, WithDiskQuotaStoresItAndWritesMaildirsize) {
    const auto result =
        run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=2097152"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expect_new_mailname("2097152B", maildirsize_text(quota_header("new", 2097152), 0, 0));
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, WithoutDiskQuotaStoresMinusOneAsTheStoreWritesIt) {
    const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expect_new_mailname("0B", "");
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, ZeroQuotaWritesTheOneByteHeader) {
    const auto result =
        run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=0"});
    EXPECT_EQ(result.status, 0) << result.err;
    expect_new_mailname("0B", maildirsize_text(1, 0, 0));
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, UpperCaseNamesAreWrittenInLowerCase) {
    const auto result = run_sorvane({"--add-mailname", "--domain-name=EXAMPLE.Test", "--mailname=NEW",
                                     "--disk-quota=1024"});
    EXPECT_EQ(result.status, 0) << result.err;
    expect_new_mailname("1024B", maildirsize_text(quota_header("new", 1024), 0, 0));
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, DocumentQuotaOfTheMailNameIsStoredAndWrittenWhenNoDiskQuotaIsGiven) {
    const std::string document = R"({"domain": {"name": "example.test", "dom_aliases": [],)"
                                 R"( "mails": [{"name": "new", "mbox_quota": 3, "mbox_quota_unit": "KB"}]}})";
    const auto result =
        run_sorvane_with_input({"--add-mailname", "--domain-name=example.test", "--mailname=new", "--wait-stdin"},
                               document);
    EXPECT_EQ(result.status, 0) << result.err;
    expect_new_mailname("3072B", maildirsize_text(quota_header("new", 3072), 0, 0));
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, DiskQuotaWinsOverTheDocumentsQuota) {
    const std::string document = R"({"domain": {"name": "example.test", "dom_aliases": [],)"
                                 R"( "mails": [{"name": "new", "mbox_quota": 3, "mbox_quota_unit": "KB"}]}})";
    const auto result = run_sorvane_with_input(
        {"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=5000", "--wait-stdin"},
        document);
    EXPECT_EQ(result.status, 0) << result.err;
    expect_new_mailname("5000B", maildirsize_text(quota_header("new", 5000), 0, 0));
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, DocumentWithoutTheMailNameLeavesItUnlimited) {
    const auto result = run_sorvane_with_input(
        {"--add-mailname", "--domain-name=example.test", "--mailname=new", "--wait-stdin"}, seeded_document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expect_new_mailname("0B", "");
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, ExistingMailNameIsMadeAgainWithItsMessagesKept) {
    const auto result =
        run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=john", "--disk-quota=4096"});
    EXPECT_EQ(result.status, 0) << result.err;
    // The record moves to the top, ".qmail" is "| true" again and the
    // message stays; the quota file counts it.
    const std::string record = mailname_record(kDomain, "john", "john");
    expected.assign = record + assign_without(expected.assign, record.substr(0, record.size() - 1));
    expected.mail_tree = with_file_content(expected.mail_tree, "example.test/john/.qmail", "| true\n");
    expected.mail_tree = with_lines(expected.mail_tree,
                                    owned_file_line("example.test/john/Maildir/maildirsize",
                                                    maildirsize_text(quota_header("john", 4096), kSeededBytes, 1),
                                                    "0644"));
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|john|") +
                                       quota_row(kDomain, "john", "4096B"));
    expected.qmail_newu_calls = {""};
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, QuotaStoreFailureWithDiskQuotaEndsWith255AndChangesNothing) {
    refuse_quota_rows();
    const auto result =
        run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=10"});
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(result.err.find("Unable to reset mailbox quota in userdb for newly created 'new@example.test'\n"),
              std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, QuotaStoreFailureWithoutDiskQuotaUsesTheSetText) {
    refuse_quota_rows();
    const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new"});
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(result.err.find("Unable to set mailbox quota in userdb for newly created 'new@example.test'\n"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(result.err.find("reset"), std::string::npos) << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddMailnameTest, FailingQmailNewuEndsWith1BeforeTheQuotaFile) {
    set_fake_status("qmail-newu", 111);
    const auto result =
        run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=new", "--disk-quota=2097152"});
    EXPECT_EQ(result.status, 1);
    expect_new_mailname("2097152B", "");
    expect_server_state(read_server_state(), expected);
}

class SetMailboxDiskQuotaTest : public AddMailnameTest {};

TEST_F(SetMailboxDiskQuotaTest, StoresTheQuotaAndRewritesMaildirsize) {
    const auto result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info", "--disk-quota=65536"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
    expected.mail_tree = with_lines(expected.mail_tree,
                                    owned_file_line("example.test/info/Maildir/maildirsize",
                                                    maildirsize_text(quota_header("info", 65536), kSeededBytes, 1),
                                                    "0644"));
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|info|") +
                                       quota_row(kDomain, "info", "65536B"));
    expect_server_state(read_server_state(), expected);
}

TEST_F(SetMailboxDiskQuotaTest, NegativeQuotaMeansNoLimit) {
    const auto result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info", "--disk-quota=-1"});
    EXPECT_EQ(result.status, 0) << result.err;
    expected.mail_tree = with_lines(expected.mail_tree,
                                    owned_file_line("example.test/info/Maildir/maildirsize",
                                                    maildirsize_text(0, kSeededBytes, 1),
                                                    "0644"));
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|info|") +
                                       quota_row(kDomain, "info", "0B"));
    expect_server_state(read_server_state(), expected);
}

TEST_F(SetMailboxDiskQuotaTest, QuotaStoreFailureEndsWith255AndLeavesTheFile) {
    refuse_quota_rows();
    const auto result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=info", "--disk-quota=65536"});
    EXPECT_EQ(result.status, 255);
    EXPECT_NE(result.err.find("Unable to set mailbox quota in userdb for 'info@example.test'\n"), std::string::npos)
        << result.err;
    expect_server_state(read_server_state(), expected);
}

TEST_F(SetMailboxDiskQuotaTest, MissingMailboxEndsWith1AfterTheStore) {
    const auto result = run_sorvane(
        {"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=ghost", "--disk-quota=100"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("unable to change to mbox folder /var/qmail/mailnames/example.test/ghost: "
                              "No such file or directory"),
              std::string::npos)
        << result.err;
    expected.quota_rows = sorted_lines(expected.quota_rows + quota_row(kDomain, "ghost", "100B"));
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
