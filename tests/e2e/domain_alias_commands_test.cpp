// --add-domain-alias, --del-domain-alias and --rename-domain-alias from the
// seeded server.
#include "e2e/domain_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

const std::string kThird = "alias-three.test";

class DomainAliasTest : public DomainCommandTest {
protected:
    static std::vector<std::string> with_lists(const std::vector<std::string>& args) {
        return joined(args, seeded_session_lists());
    }
    static std::string copied_key_dir_lines(const std::string& from, const std::string& to) {
        return to + "/ d 0:0 0750\n" + to + "/default f 0:0 0600 private key of " + from + "\\n\n";
    }
    static std::vector<DomainView> views(const std::vector<std::string>& domains) {
        std::vector<DomainView> result;
        for (const auto& domain : domains)
            result.push_back({domain});
        return result;
    }
    // The seeded state with a third domain alias added as the command adds it.
    static ServerState third_added_state(const std::string& rejectnonexist) {
        ServerState state = seeded_server_state();
        state.rcpthosts += kThird + "\n";
        state.virtualdomains += kThird + ":" + kDomain + "\n";
        state.rejectnonexist = rejectnonexist;
        state.key_dirs = sorted_lines(state.key_dirs + copied_key_dir_lines(kDomain, kThird));
        const auto all = views({kDomain, kAliasOne, kAliasTwo, kThird});
        state.handler_rows = expected_handler_rows(all);
        state.auth_domains = expected_auth_domains(all);
        state.auth_users = expected_auth_users(all);
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }
    static ServerState second_removed_state() {
        ServerState state = seeded_server_state();
        state.rcpthosts = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n";
        state.virtualdomains =
            kNeighbour + ":" + kNeighbour + "\n" + kDomain + ":" + kDomain + "\n" + kAliasOne + ":" + kDomain + "\n";
        state.key_dirs = expected_key_dirs({kDomain, kAliasOne});
        const auto left = views({kDomain, kAliasOne});
        state.handler_rows = expected_handler_rows(left);
        state.auth_domains = expected_auth_domains(left);
        state.auth_users = expected_auth_users(left);
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }
};

TEST_F(DomainAliasTest, AddingWithRejectCopiesHandlersKeysAndAuthenticationRecords) {
    const auto args = with_lists(
        {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=Alias-Three.test", "--set-reject"});
    expect_silent_success(run_sorvane(args));
    expect_server_state(read_server_state(), third_added_state(kNeighbour + "\n" + kThird + "\n"));
}

TEST_F(DomainAliasTest, AddingTwiceLeavesLinesAndRowsOnce) {
    const auto args = with_lists(
        {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-three.test", "--set-reject"});
    expect_silent_success(run_sorvane(args));
    expect_silent_success(run_sorvane(args));
    ServerState expected = third_added_state(kNeighbour + "\n" + kThird + "\n");
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainAliasTest, AddingWithBounceLeavesTheRejectListAlone) {
    expect_silent_success(run_sorvane(with_lists({"--add-domain-alias", "--domain-name=example.test",
                                                  "--domain-alias-name=alias-three.test", "--set-bounce"})));
    expect_server_state(read_server_state(), third_added_state(kNeighbour + "\n"));
}

TEST_F(DomainAliasTest, AddingWithoutActionIsLoggedAndAFatalError) {
    SyslogCapture capture;
    const auto result = run_sorvane(
        with_lists({"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-three.test"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "Fatal error: crelm::mail::sorvane_commands::MissingMandatoryOption(mandatory option \"--set-bounce\" "
              "or \"--set-catchall\" or \"--set-reject\" is not specified)\n");
    EXPECT_EQ(capture.messages(),
              std::vector<std::string>{
                  "Action for notexisting mail names is not specified (--set-bounce/--set-catchall/--set-reject)"});
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(DomainAliasTest, FailingHandlersCopyEndsWith1AfterEveryStep) {
    refuse_store_writes(kHandlersDb, "handlers", "INSERT");
    SyslogCapture capture;
    EXPECT_EQ(run_sorvane(with_lists({"--add-domain-alias", "--domain-name=example.test",
                                      "--domain-alias-name=alias-three.test", "--set-bounce"}))
                  .status,
              1);
    ServerState expected = third_added_state(kNeighbour + "\n");
    expected.handler_rows = seeded_server_state().handler_rows;
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainAliasTest, RemovingNeedsNoActionAndLeavesNothingOfTheAlias) {
    expect_silent_success(run_sorvane(
        with_lists({"--del-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-two.test"})));
    expect_server_state(read_server_state(), second_removed_state());
}

TEST_F(DomainAliasTest, RemovingTwiceLeavesTheSameState) {
    const auto args =
        with_lists({"--del-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-two.test"});
    expect_silent_success(run_sorvane(args));
    expect_silent_success(run_sorvane(args));
    ServerState expected = second_removed_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainAliasTest, RemovingWithAFailingAuthenticationStoreLogsAndEndsWith1) {
    refuse_store_writes(kAuthDb, "domains", "DELETE");
    SyslogCapture capture;
    EXPECT_EQ(run_sorvane(with_lists({"--del-domain-alias", "--domain-name=example.test",
                                      "--domain-alias-name=alias-two.test"}))
                  .status,
              1);
    EXPECT_EQ(messages_starting(capture, "Unable to remove domain"),
              (std::vector<std::string>{"Unable to remove domain alias-two.test from auth database",
                                        "Unable to remove domain aliases"}));
    ServerState expected = second_removed_state();
    const auto domains = views({kDomain, kAliasOne, kAliasTwo});
    expected.auth_domains = expected_auth_domains(domains);
    expected.auth_users = expected_auth_users(domains);
    expect_server_state(read_server_state(), expected);
}

// A directory where rcpthosts' temporary copy goes: the alias's rcpthosts
// line cannot be taken out. Every other step still runs, the command ends
// with 1 and says why, and the same command run again finishes the job.
TEST_F(DomainAliasTest, RemovingWhenRcpthostsCannotBeRewrittenEndsWith1AndARerunFinishes) {
    sorvane::test::pin_file("/var/qmail/control/rcpthosts");
    const auto args =
        with_lists({"--del-domain-alias", "--domain-name=example.test", "--domain-alias-name=alias-two.test"});
    const ProcessResult failed = run_sorvane(args);
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.err.find("Unable to remove domain alias from rcpthosts file\n"), std::string::npos)
        << failed.err;
    ServerState expected = second_removed_state();
    expected.rcpthosts = seeded_server_state().rcpthosts;
    expect_server_state(read_server_state(), expected);

    sorvane::test::unpin_file("/var/qmail/control/rcpthosts");
    expect_silent_success(run_sorvane(args));
    expected = second_removed_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainAliasTest, RenamingMovesLinesHandlersKeysAndAuthenticationRecords) {
    expect_silent_success(
        run_sorvane(with_lists({"--rename-domain-alias", "--domain-name=example.test",
                                "--old-domain-alias-name=alias-two.test", "--new-domain-alias-name=alias-new.test",
                                "--set-reject"})));
    const std::string renamed = "alias-new.test";
    ServerState expected = seeded_server_state();
    expected.rcpthosts = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + renamed + "\n";
    expected.virtualdomains = kNeighbour + ":" + kNeighbour + "\n" + kDomain + ":" + kDomain + "\n" + kAliasOne + ":" +
                              kDomain + "\n" + renamed + ":" + kDomain + "\n";
    expected.rejectnonexist = kNeighbour + "\n" + renamed + "\n";
    expected.key_dirs = sorted_lines(expected_key_dirs({kDomain, kAliasOne}) +
                                     copied_key_dir_lines(kAliasTwo, renamed));
    const auto domains = views({kDomain, kAliasOne, renamed});
    expected.handler_rows = expected_handler_rows(domains);
    expected.auth_domains = expected_auth_domains(domains);
    expected.auth_users = expected_auth_users(domains);
    expected.qmail_newu_calls = {kNewuCall};
    expected.killall_calls = {kReloadCall};
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainAliasTest, RenamingWithAFailingQmailNewuRunsEveryStepAndEndsWith1) {
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane(with_lists({"--rename-domain-alias", "--domain-name=example.test",
                                      "--old-domain-alias-name=alias-two.test",
                                      "--new-domain-alias-name=alias-new.test", "--set-bounce"}))
                  .status,
              1);
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"),
              kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\nalias-new.test\n");
    EXPECT_EQ(auth_domains(), expected_auth_domains(views({kDomain, kAliasOne, "alias-new.test"})));
    EXPECT_EQ(key_dirs_listing(), sorted_lines(expected_key_dirs({kDomain, kAliasOne}) +
                                               copied_key_dir_lines(kAliasTwo, "alias-new.test")));
}

TEST_F(DomainAliasTest, RenamingWithoutActionIsAFatalError) {
    const auto result = run_sorvane(
        with_lists({"--rename-domain-alias", "--domain-name=example.test", "--old-domain-alias-name=alias-two.test",
                    "--new-domain-alias-name=alias-new.test"}));
    EXPECT_EQ(result.status, 1);
    expect_server_state(read_server_state(), seeded_server_state());
}

TEST_F(DomainAliasTest, FailingQmailNewuEndsWith1) {
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane(with_lists({"--del-domain-alias", "--domain-name=example.test",
                                      "--domain-alias-name=alias-two.test"}))
                  .status,
              1);
    expect_server_state(read_server_state(), second_removed_state());
}

TEST_F(DomainAliasTest, FailingKillallFallsBackToTheRestart) {
    set_fake_status("killall", 1);
    EXPECT_EQ(run_sorvane(with_lists({"--del-domain-alias", "--domain-name=example.test",
                                      "--domain-alias-name=alias-two.test"}))
                  .status,
              0);
    ServerState expected = second_removed_state();
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
