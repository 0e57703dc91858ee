// --rename-domain from the seeded server.
#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

const std::string kRenamed = "renamed.test";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

class RenameDomainTest : public DomainCommandTest {
protected:
    static std::vector<std::string> rename_args() {
        return {"--rename-domain", "--old-domain-name=example.test", "--new-domain-name=Renamed.TEST"};
    }

    static ServerState renamed_state() {
        ServerState state = seeded_server_state();
        state.rcpthosts = replaced(state.rcpthosts, kDomain, kRenamed);
        state.virtualdomains = replaced(state.virtualdomains, kDomain, kRenamed);
        state.assign = replaced(state.assign, kDomain, kRenamed);
        state.mail_tree = sorted_lines(default_delivery_lines() + neighbour_tree_lines() +
                                       domain_tree_lines(kRenamed, kDefaultBounce, seeded_mailnames()));
        state.key_dirs = sorted_lines(expected_key_dirs({kAliasOne, kAliasTwo}) +
                                      replaced(key_dir_lines(kDomain), kDomain + "/", kRenamed + "/"));
        state.quota_rows = expected_quota_rows(kRenamed);
        const std::vector<DomainView> views{{kRenamed}, {kAliasOne}, {kAliasTwo}};
        state.handler_rows = expected_handler_rows(views);
        state.auth_domains = expected_auth_domains(views);
        state.auth_users = expected_auth_users(views);
        state.qmail_newu_calls = {kNewuCall};
        state.crelmrc_calls = {kRestartCall};
        return state;
    }
};

TEST_F(RenameDomainTest, EverythingOfTheDomainFollowsItsNewName) {
    expect_silent_success(run_sorvane(rename_args()));
    expect_server_state(read_server_state(), renamed_state());
}

TEST_F(RenameDomainTest, RenamingBackRestoresTheStartingState) {
    expect_silent_success(run_sorvane(rename_args()));
    expect_silent_success(
        run_sorvane({"--rename-domain", "--old-domain-name=renamed.test", "--new-domain-name=example.test"}));
    ServerState expected = seeded_server_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.crelmrc_calls = repeated(kRestartCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(RenameDomainTest, OnlyTheOldNameIsAMissingMandatoryOption) {
    const auto result = run_sorvane({"--rename-domain", "--old-domain-name=example.test"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "mandatory option \"--new-domain-name\" is not specified\n");
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(RenameDomainTest, FailingQuotaStoreEndsWith255AndChangesNothing) {
    refuse_store_writes(kQuotaDb, "mailbox_quota", "UPDATE");
    SyslogCapture capture;
    EXPECT_EQ(run_sorvane(rename_args()).status, 255);
    EXPECT_EQ(messages_starting(capture, "Unable to rename domain from"),
              std::vector<std::string>{"Unable to rename domain from 'example.test' to 'renamed.test' in userdb"});
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(RenameDomainTest, ExistingTargetDirectoryEndsWith1) {
    write_file(kMailnamesDir + "/renamed.test/placeholder", "", 0600);
    const auto before = read_server_state();
    const auto result = run_sorvane(rename_args());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("Mail directory /var/qmail/mailnames/renamed.test already exists.\n"),
              std::string::npos)
        << result.err;
    ServerState expected = before;
    // The quota store step comes first and is not undone.
    expected.quota_rows = expected_quota_rows(kRenamed);
    expect_server_state(read_server_state(), expected);
}

TEST_F(RenameDomainTest, FailingQmailNewuEndsWith1) {
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane(rename_args()).status, 1);
    expect_server_state(read_server_state(), renamed_state());
}

}  // namespace
}  // namespace sorvane::test
