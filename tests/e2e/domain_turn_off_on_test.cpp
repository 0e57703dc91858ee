// --turn-off-domain and --turn-on-domain from the seeded server.
#include "e2e/domain_test_support.h"

namespace sorvane::test {
namespace {

const std::string kMissingAction =
    "Fatal error: crelm::mail::sorvane_commands::MissingMandatoryOption(mandatory option \"--set-bounce\" or "
    "\"--set-catchall\" or \"--set-reject\" is not specified)\n";
const std::string kActionLog =
    "Action for notexisting mail names is not specified (--set-bounce/--set-catchall/--set-reject)";

class TurnDomainTest : public DomainCommandTest {
protected:
    static std::vector<std::string> turn_off_args() {
        return joined({"--turn-off-domain", "--domain-name=example.test"}, seeded_session_lists());
    }
    static std::vector<std::string> turn_on_args(const std::vector<std::string>& action) {
        return joined(joined({"--turn-on-domain", "--domain-name=example.test"}, seeded_session_lists()), action);
    }

    // The domain is out of rcpthosts and virtualdomains and rejects unknown
    // names, its handlers are off and its authentication row disabled; its
    // domain aliases are gone with their handlers, keys and rows.
    static ServerState off_state() {
        ServerState state = seeded_server_state();
        state.rcpthosts = kNeighbour + "\n";
        state.virtualdomains = kNeighbour + ":" + kNeighbour + "\n";
        state.rejectnonexist = kNeighbour + "\n" + kDomain + "\n";
        state.key_dirs = expected_key_dirs({kDomain});
        const std::vector<DomainView> domain{{kDomain, 1, false}};
        state.handler_rows = expected_handler_rows(domain);
        state.auth_domains = expected_auth_domains(domain);
        state.auth_users = expected_auth_users(domain);
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }

    // After off_state, turned on again: both aliases back after the domain,
    // the handlers, keys and rows of the aliases copied from the domain's.
    static ServerState on_again_state(const std::string& rejectnonexist, const std::string& qmail_default) {
        ServerState state = seeded_server_state();
        state.rcpthosts = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
        state.rejectnonexist = rejectnonexist;
        state.mail_tree = sorted_lines(default_delivery_lines() + neighbour_tree_lines() +
                                       domain_tree_lines(kDomain, qmail_default, seeded_mailnames()));
        state.key_dirs = sorted_lines(key_dir_lines(kNeighbour) + key_dir_lines(kDomain) +
                                      copied_key_dir_lines(kDomain, kAliasOne) +
                                      copied_key_dir_lines(kDomain, kAliasTwo));
        state.qmail_newu_calls = repeated(kNewuCall, 2);
        state.killall_calls = repeated(kReloadCall, 2);
        return state;
    }

    static std::string copied_key_dir_lines(const std::string& from, const std::string& to) {
        return to + "/ d 0:0 0750\n" + to + "/default f 0:0 0600 private key of " + from + "\\n\n";
    }
};

TEST_F(TurnDomainTest, TurningOffTakesOutTheDomainAndItsAliases) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_server_state(read_server_state(), off_state());
}

TEST_F(TurnDomainTest, TurningOffTwiceLeavesTheSameState) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_silent_success(run_sorvane(turn_off_args()));
    ServerState expected = off_state();
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(TurnDomainTest, TurningOnWithRejectListsTheDomainAndEachAliasOnce) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_silent_success(run_sorvane(turn_on_args({"--set-reject"})));
    expect_server_state(read_server_state(),
                        on_again_state(kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n",
                                       kDefaultBounce));
    expect_silent_success(run_sorvane(turn_on_args({"--set-reject"})));
    EXPECT_EQ(read_file("/var/qmail/control/rejectnonexist"),
              kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n");
    EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"),
              kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n");
}

// A phrase with a newline is refused (see the hostile names tests); one on
// one line is written with its shell syntax escaped.
TEST_F(TurnDomainTest, TurningOnWithBounceWritesThePhraseQuoted) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_silent_success(run_sorvane(turn_on_args({"--set-bounce", "--phrase=Gone fishing; back $soon"})));
    expect_server_state(read_server_state(),
                        on_again_state(kNeighbour + "\n", "|bouncesaying Gone\\ fishing\\;\\ back\\ \\$soon\n"));
}

TEST_F(TurnDomainTest, BounceWinsOverReject) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_silent_success(run_sorvane(turn_on_args({"--set-reject", "--set-bounce"})));
    expect_server_state(read_server_state(), on_again_state(kNeighbour + "\n", kDefaultBounce));
}

TEST_F(TurnDomainTest, TurningOnWithCatchAllForwardsToTheAsciiAddress) {
    expect_silent_success(run_sorvane(turn_off_args()));
    expect_silent_success(
        run_sorvane(turn_on_args({"--set-catchall", "--email=postmaster@B\xc3\xbc" "cher.test"})));
    expect_server_state(read_server_state(),
                        on_again_state(kNeighbour + "\n", "&postmaster@xn--bcher-kva.test\n"));
}

TEST_F(TurnDomainTest, CatchAllWithoutEmailIsAFatalError) {
    const auto before = read_server_state();
    const auto result = run_sorvane(turn_on_args({"--set-catchall"}));
    EXPECT_EQ(result.status, 1);
    const std::string line =
        "Fatal error: crelm::mail::sorvane_commands::MissingMandatoryOption(mandatory option \"--email\" is not "
        "specified)\n";
    EXPECT_EQ(result.err, line);
    EXPECT_EQ(result.out, line);
    expect_server_state(read_server_state(), before);
}

TEST_F(TurnDomainTest, NoActionIsLoggedAndAFatalError) {
    const auto before = read_server_state();
    SyslogCapture capture;
    const auto result = run_sorvane(turn_on_args({}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, kMissingAction);
    EXPECT_EQ(capture.messages(), std::vector<std::string>{kActionLog});
    expect_server_state(read_server_state(), before);
}

TEST_F(TurnDomainTest, DomainWithoutAliasesTurnsOffAndOnWithOnlyItsOwnSteps) {
    const std::vector<std::string> lists{"--mail-addresses=" + seeded_mail_addresses()};
    expect_silent_success(run_sorvane(joined({"--turn-off-domain", "--domain-name=example.test"}, lists)));
    ServerState expected = seeded_server_state();
    expected.rcpthosts = kNeighbour + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
    expected.virtualdomains =
        kNeighbour + ":" + kNeighbour + "\n" + kAliasOne + ":" + kDomain + "\n" + kAliasTwo + ":" + kDomain + "\n";
    expected.rejectnonexist = kNeighbour + "\n" + kDomain + "\n";
    std::vector<DomainView> views{{kDomain, 1, false}, {kAliasOne}, {kAliasTwo}};
    expected.handler_rows = expected_handler_rows(views);
    expected.auth_domains = expected_auth_domains(views);
    expected.auth_users = expected_auth_users(views);
    expected.qmail_newu_calls = {kNewuCall};
    expected.killall_calls = {kReloadCall};
    expect_server_state(read_server_state(), expected);

    expect_silent_success(run_sorvane(
        joined(joined({"--turn-on-domain", "--domain-name=example.test"}, lists), {"--set-reject"})));
    expected.rcpthosts = kNeighbour + "\n" + kAliasOne + "\n" + kAliasTwo + "\n" + kDomain + "\n";
    expected.virtualdomains =
        kNeighbour + ":" + kNeighbour + "\n" + kAliasOne + ":" + kDomain + "\n" + kAliasTwo + ":" + kDomain + "\n" +
        kDomain + ":" + kDomain + "\n";
    views = {{kDomain}, {kAliasOne}, {kAliasTwo}};
    expected.handler_rows = expected_handler_rows(views);
    expected.auth_domains = expected_auth_domains(views);
    expected.auth_users = expected_auth_users(views);
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(TurnDomainTest, FailingAuthenticationStoreForAnAliasEndsWith1AfterEveryStep) {
    refuse_store_writes(kAuthDb, "domains", "DELETE");
    SyslogCapture capture;
    EXPECT_EQ(run_sorvane(turn_off_args()).status, 1);
    ServerState expected = off_state();
    const std::vector<DomainView> views{{kDomain, 1, false}, {kAliasOne}, {kAliasTwo}};
    expected.auth_domains = expected_auth_domains(views);
    expected.auth_users = expected_auth_users(views);
    expect_server_state(read_server_state(), expected);
    EXPECT_EQ(messages_starting(capture, "Unable to remove domain"),
              (std::vector<std::string>{"Unable to remove domain alias-one.test from auth database",
                                        "Unable to remove domain aliases",
                                        "Unable to remove domain alias-two.test from auth database",
                                        "Unable to remove domain aliases"}));
}

TEST_F(TurnDomainTest, FailingQmailNewuEndsWith1) {
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane(turn_off_args()).status, 1);
    expect_server_state(read_server_state(), off_state());
}

TEST_F(TurnDomainTest, TurningOnWithAFailingQmailNewuRunsEveryStepAndEndsWith1) {
    expect_silent_success(run_sorvane(turn_off_args()));
    set_fake_status("qmail-newu", 1);
    EXPECT_EQ(run_sorvane(turn_on_args({"--set-reject"})).status, 1);
    expect_server_state(read_server_state(),
                        on_again_state(kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n",
                                       kDefaultBounce));
}

TEST_F(TurnDomainTest, TurningOnWithAFailingHandlersStoreEndsWith1) {
    expect_silent_success(run_sorvane(turn_off_args()));
    refuse_store_writes(kHandlersDb, "handlers", "INSERT");
    EXPECT_EQ(run_sorvane(turn_on_args({"--set-bounce"})).status, 1);
    ServerState expected = on_again_state(kNeighbour + "\n", kDefaultBounce);
    // The domain's own handlers are switched on; none reach the aliases.
    expected.handler_rows = expected_handler_rows({{kDomain}});
    expect_server_state(read_server_state(), expected);
}

TEST_F(TurnDomainTest, FailingKillallFallsBackToTheRestart) {
    set_fake_status("killall", 1);
    EXPECT_EQ(run_sorvane(turn_off_args()).status, 0);
    ServerState expected = off_state();
    expected.crelmrc_calls = {kRestartCall};
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
