// --add-domain on a server without domains, and beside the seeded one.
#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

const std::string kNew = "new.example";

class AddDomainTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_empty_server();
    }

    // What a new domain without mail names leaves: its lines, its "+"
    // record, its directory with the default bounce, and an empty reject
    // list (reject is switched off for it).
    static ServerState added_state() {
        ServerState state;
        state.rcpthosts = kNew + "\n";
        state.virtualdomains = kNew + ":" + kNew + "\n";
        state.locals = "localhost\n";
        state.rejectnonexist = "";
        state.assign = domain_record(kNew) + ".\n";
        state.mail_tree = sorted_lines(default_delivery_lines() + domain_dir_lines(kNew, kDefaultBounce));
        state.key_dirs = "";
        state.quota_rows = "";
        state.handler_rows = "";
        state.auth_domains = "";
        state.auth_users = "";
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }

    static std::string document() {
        return R"({"domain": {"name": "new.example", "mails": [{"name": "info", "mbox_quota": 2, "mbox_quota_unit": "KB"},
                  {"name": "Sales"}, {"name": "zero", "mbox_quota": 0}]}})";
    }
};

TEST_F(AddDomainTest, AddsTheDomainWithTheDefaultBounce) {
    const auto result = run_sorvane({"--add-domain", "--domain-name=New.EXAMPLE"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    expect_server_state(read_server_state(), added_state());
}

TEST_F(AddDomainTest, InternationalNameIsWrittenInAscii) {
    EXPECT_EQ(run_sorvane({"--add-domain", "--domain-name=B\xc3\xbc" "cher.TEST"}).status, 0);
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), "xn--bcher-kva.test\n");
    EXPECT_EQ(read_file("/var/qmail/control/virtualdomains"), "xn--bcher-kva.test:xn--bcher-kva.test\n");
    EXPECT_EQ(read_file("/var/qmail/users/assign"), domain_record("xn--bcher-kva.test") + ".\n");
}

TEST_F(AddDomainTest, DocumentMailNamesGetTheirOwnQuotaOrTheDiskQuota) {
    const auto result =
        run_sorvane_with_input({"--add-domain", "--domain-name=new.example", "--disk-quota=5000", "--wait-stdin"},
                               document());
    EXPECT_EQ(result.status, 0) << result.err;
    ServerState expected = added_state();
    expected.quota_rows = quota_row(kNew, "info", "2048B") + quota_row(kNew, "sales", "5000B") +
                          quota_row(kNew, "zero", "0B");
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddDomainTest, WithoutDiskQuotaMailNamesWithoutTheirOwnAreUnlimited) {
    const auto result = run_sorvane_with_input({"--add-domain", "--domain-name=new.example", "--wait-stdin"}, document());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(quota_rows(), quota_row(kNew, "info", "2048B") + quota_row(kNew, "sales", "0B") +
                                quota_row(kNew, "zero", "0B"));
}

TEST_F(AddDomainTest, RepeatedLeavesEachLineAndRecordOnce) {
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 0);
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 0);
    ServerState expected = added_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(AddDomainTest, DomainListedInLocalsBecomesVirtual) {
    write_file("/var/qmail/control/locals", "localhost\nnew.example\n", 0644);
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 0);
    expect_server_state(read_server_state(), added_state());
}

TEST_F(AddDomainTest, FailingQuotaStoreEndsWith255AndChangesNothing) {
    refuse_store_writes(kQuotaDb, "mailbox_quota", "INSERT");
    const auto before = read_server_state();
    SyslogCapture capture;
    const auto result =
        run_sorvane_with_input({"--add-domain", "--domain-name=new.example", "--wait-stdin"}, document());
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(messages_starting(capture, "Unable to set"),
              (std::vector<std::string>{"Unable to set quota for 'info@new.example': refused by the test",
                                        "Unable to set mailbox quotas in userdb for domain 'new.example'"}));
    expect_server_state(read_server_state(), before);
}

TEST_F(AddDomainTest, FailingQmailNewuStillReloadsAndEndsWith1) {
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 1);
    expect_server_state(read_server_state(), added_state());
}

TEST_F(AddDomainTest, FailingKillallFallsBackToTheRestart) {
    set_fake_status("killall", 1);
    EXPECT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 0);
    ServerState expected = added_state();
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);
}

class AddDomainBesideOthersTest : public DomainCommandTest {};

TEST_F(AddDomainBesideOthersTest, OtherDomainsAndTheirAliasesKeepTheirLines) {
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=new.example"}).status, 0);
    ServerState expected = seeded_server_state();
    expected.rcpthosts += kNew + "\n";
    expected.virtualdomains += kNew + ":" + kNew + "\n";
    expected.assign = domain_record(kNew) + expected.assign;
    expected.mail_tree = sorted_lines(expected.mail_tree + domain_dir_lines(kNew, kDefaultBounce));
    expected.qmail_newu_calls = {kNewuCall};
    expected.killall_calls = {kReloadCall};
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
