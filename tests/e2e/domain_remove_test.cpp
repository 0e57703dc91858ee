// --remove-domain from the seeded server.
#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

class RemoveDomainTest : public DomainCommandTest {
protected:
    static std::vector<std::string> remove_args() {
        return joined({"--remove-domain", "--domain-name=Example.TEST"}, seeded_session_lists());
    }

    // example.test is gone; its domain aliases, left to --del-domain-alias,
    // and the neighbour stay.
    static ServerState removed_state() {
        ServerState state = seeded_server_state();
        state.rcpthosts = kNeighbour + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
        state.virtualdomains = kNeighbour + ":" + kNeighbour + "\n" + kAliasOne + ":" + kDomain + "\n" + kAliasTwo +
                               ":" + kDomain + "\n";
        state.assign = mailname_record(kNeighbour, "info", "info") + domain_record(kNeighbour) + ".\n";
        state.mail_tree = sorted_lines(default_delivery_lines() + neighbour_tree_lines());
        state.key_dirs = expected_key_dirs({kAliasOne, kAliasTwo});
        state.quota_rows = expected_quota_rows("");
        const std::vector<DomainView> aliases{{kAliasOne}, {kAliasTwo}};
        state.handler_rows = expected_handler_rows(aliases);
        state.auth_domains = expected_auth_domains(aliases);
        state.auth_users = expected_auth_users(aliases);
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }
};

TEST_F(RemoveDomainTest, RemovesEverythingOfTheDomainAndNothingOfOthers) {
    expect_silent_success(run_sorvane(remove_args()));
    expect_server_state(read_server_state(), removed_state());
}

TEST_F(RemoveDomainTest, RepeatedLeavesTheSameState) {
    expect_silent_success(run_sorvane(remove_args()));
    expect_silent_success(run_sorvane(remove_args()));
    ServerState expected = removed_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(RemoveDomainTest, FailingQuotaStoreEndsWith255AndChangesNothing) {
    refuse_store_writes(kQuotaDb, "mailbox_quota", "DELETE");
    SyslogCapture capture;
    const auto result = run_sorvane(remove_args());
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(messages_starting(capture, "Unable to remove domain quota"),
              std::vector<std::string>{
                  "Unable to remove domain quota from userdb for newly created domain 'example.test'"});
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(RemoveDomainTest, FailingQmailNewuEndsWith1AfterEveryStep) {
    set_fake_status("qmail-newu", 1);
    const auto result = run_sorvane(remove_args());
    EXPECT_EQ(result.status, 1);
    expect_server_state(read_server_state(), removed_state());
}

TEST_F(RemoveDomainTest, FailingHandlersStoreEndsWith1AfterEveryStep) {
    refuse_store_writes(kHandlersDb, "handlers", "DELETE");
    SyslogCapture capture;
    const auto result = run_sorvane(remove_args());
    EXPECT_EQ(result.status, 1);
    ServerState expected = removed_state();
    expected.handler_rows = seeded_server_state().handler_rows;
    expect_server_state(read_server_state(), expected);
    EXPECT_EQ(messages_starting(capture, "Unable to execute delete record from handlers database").size(), 1u);
}

TEST_F(RemoveDomainTest, FailingKillallFallsBackToTheRestart) {
    set_fake_status("killall", 1);
    SyslogCapture capture;
    const auto result = run_sorvane(remove_args());
    EXPECT_EQ(result.status, 0);
    ServerState expected = removed_state();
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);
    EXPECT_EQ(messages_starting(capture, "Reload of qmail-send failed"),
              std::vector<std::string>{"Reload of qmail-send failed, performing full restart"});
}

TEST_F(RemoveDomainTest, FailingKillallAndRestartEndWith1) {
    set_fake_status("killall", 1);
    set_fake_status("crelmrc", 1);
    EXPECT_EQ(run_sorvane(remove_args()).status, 1);
    ServerState expected = removed_state();
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
