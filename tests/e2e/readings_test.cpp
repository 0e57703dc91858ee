// How the mail name and domain commands read the cases their steps leave
// open: a mail name without a mailbox (no authentication record to copy),
// the domain switch's store step after a failing control file, the shape of
// a catch-all address and the number that --default-domain-quota takes.
// Every case runs the built program on the seeded server and compares the
// whole resulting state.
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/domain_test_support.h"
#include "e2e/mailbox_state.h"

namespace sorvane::test {
namespace {

const std::string kNoBox = "nobox";
const std::string kThird = "alias-three.test";

std::string copied_key_dir_lines(const std::string& from, const std::string& to) {
    return to + "/ d 0:0 0750\n" + to + "/default f 0:0 0600 private key of " + from + "\\n\n";
}

std::vector<DomainView> views(const std::vector<std::string>& domains) {
    std::vector<DomainView> result;
    for (const auto& domain : domains)
        result.push_back({domain});
    return result;
}

std::vector<std::string> appended(std::vector<std::string> calls, const std::string& call, std::size_t times) {
    calls.insert(calls.end(), times, call);
    return calls;
}

// The seeded server with one more mail name, nobox, that has no mailbox and
// so no authentication record; the session lists name it with the others.
class MailNameWithoutMailboxTest : public DomainCommandTest {
protected:
    void SetUp() override {
        DomainCommandTest::SetUp();
        const auto added =
            run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=" + kNoBox});
        ASSERT_EQ(added.status, 0) << added.err;
        start = read_server_state();
        ASSERT_EQ(start.auth_users, seeded_server_state().auth_users);
    }
    static std::vector<std::string> lists() {
        return {"--domain-aliases=" + kAliasOne + "," + kAliasTwo,
                "--mail-addresses=" + seeded_mail_addresses() + ";" + kNoBox};
    }
    ServerState start;
};

TEST_F(MailNameWithoutMailboxTest, AddingAnAliasWritesItsRecordRunsQmailNewuAndSucceeds) {
    const auto result =
        run_sorvane(joined({"--add-alias", "--domain-name=example.test", "--mailname=nobox", "--alias=extra"}, lists()));
    expect_silent_success(result);
    ServerState expected = start;
    expected.assign = mailname_record(kDomain, "extra", kNoBox) + start.assign;
    expected.qmail_newu_calls = appended(start.qmail_newu_calls, kNewuCall, 1);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailNameWithoutMailboxTest, TurningTheDomainOnAgainSucceeds) {
    expect_silent_success(run_sorvane(joined({"--turn-off-domain", "--domain-name=example.test"}, lists())));
    const auto result =
        run_sorvane(joined(joined({"--turn-on-domain", "--domain-name=example.test"}, lists()), {"--set-reject"}));
    expect_silent_success(result);
    ServerState expected = start;
    expected.rejectnonexist = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
    expected.key_dirs = sorted_lines(key_dir_lines(kNeighbour) + key_dir_lines(kDomain) +
                                     copied_key_dir_lines(kDomain, kAliasOne) +
                                     copied_key_dir_lines(kDomain, kAliasTwo));
    expected.qmail_newu_calls = appended(start.qmail_newu_calls, kNewuCall, 2);
    expected.killall_calls = appended(start.killall_calls, kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailNameWithoutMailboxTest, AddingADomainAliasSucceeds) {
    const auto result = run_sorvane(joined(
        {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=" + kThird, "--set-reject"},
        lists()));
    expect_silent_success(result);
    ServerState expected = start;
    expected.rcpthosts += kThird + "\n";
    expected.virtualdomains += kThird + ":" + kDomain + "\n";
    expected.rejectnonexist = kNeighbour + "\n" + kThird + "\n";
    expected.key_dirs = sorted_lines(start.key_dirs + copied_key_dir_lines(kDomain, kThird));
    const auto all = views({kDomain, kAliasOne, kAliasTwo, kThird});
    expected.handler_rows = expected_handler_rows(all);
    expected.auth_domains = expected_auth_domains(all);
    expected.auth_users = expected_auth_users(all);
    expected.qmail_newu_calls = appended(start.qmail_newu_calls, kNewuCall, 1);
    expected.killall_calls = appended(start.killall_calls, kReloadCall, 1);
    expect_server_state(read_server_state(), expected);
}

TEST_F(MailNameWithoutMailboxTest, RenamingADomainAliasSucceeds) {
    const auto result = run_sorvane(joined({"--rename-domain-alias", "--domain-name=example.test",
                                            "--old-domain-alias-name=" + kAliasTwo,
                                            "--new-domain-alias-name=" + kThird, "--set-reject"},
                                           lists()));
    expect_silent_success(result);
    ServerState expected = start;
    expected.rcpthosts = kNeighbour + "\n" + kDomain + "\n" + kAliasOne + "\n" + kThird + "\n";
    expected.virtualdomains = kNeighbour + ":" + kNeighbour + "\n" + kDomain + ":" + kDomain + "\n" + kAliasOne +
                              ":" + kDomain + "\n" + kThird + ":" + kDomain + "\n";
    expected.rejectnonexist = kNeighbour + "\n" + kThird + "\n";
    expected.key_dirs =
        sorted_lines(expected_key_dirs({kDomain, kAliasOne}) + copied_key_dir_lines(kAliasTwo, kThird));
    const auto domains = views({kDomain, kAliasOne, kThird});
    expected.handler_rows = expected_handler_rows(domains);
    expected.auth_domains = expected_auth_domains(domains);
    expected.auth_users = expected_auth_users(domains);
    expected.qmail_newu_calls = appended(start.qmail_newu_calls, kNewuCall, 1);
    expected.killall_calls = appended(start.killall_calls, kReloadCall, 1);
    expect_server_state(read_server_state(), expected);
}

// A store that cannot be read is no missing record: the copy still fails.
TEST_F(MailNameWithoutMailboxTest, AnAuthenticationStoreThatFailsStillFailsTheAliasCopy) {
    ServerState expected = start;
    const auto broken = run_process({"/usr/bin/sqlite3", kAuthDb, "ALTER TABLE users RENAME TO users_gone;"});
    ASSERT_EQ(broken.status, 0) << broken.err;
    SyslogCapture capture;
    const auto result =
        run_sorvane(joined({"--add-alias", "--domain-name=example.test", "--mailname=john", "--alias=extra"}, lists()));
    const auto mended = run_process({"/usr/bin/sqlite3", kAuthDb, "ALTER TABLE users_gone RENAME TO users;"});
    ASSERT_EQ(mended.status, 0) << mended.err;
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(messages_starting(capture, "Unable to clone auth record"),
              std::vector<std::string>{"Unable to clone auth record for extra@example.test"});
    expected.assign = mailname_record(kDomain, "extra", "john") + expected.assign;
    expect_server_state(read_server_state(), expected);
}

// The domain alone (no domain aliases in the session), so that only the
// domain's own steps meet the broken rcpthosts.
class DomainSwitchStepsTest : public DomainCommandTest {
protected:
    static std::vector<std::string> lists() { return {"--mail-addresses=" + seeded_mail_addresses()}; }
    // The seeded server after the domain alone was turned off.
    static ServerState off_state() {
        ServerState state = seeded_server_state();
        state.rcpthosts = kNeighbour + "\n" + kAliasOne + "\n" + kAliasTwo + "\n";
        state.virtualdomains =
            kNeighbour + ":" + kNeighbour + "\n" + kAliasOne + ":" + kDomain + "\n" + kAliasTwo + ":" + kDomain + "\n";
        state.rejectnonexist = kNeighbour + "\n" + kDomain + "\n";
        const std::vector<DomainView> off{{kDomain, 1, false}, {kAliasOne}, {kAliasTwo}};
        state.handler_rows = expected_handler_rows(off);
        state.auth_domains = expected_auth_domains(off);
        state.auth_users = expected_auth_users(off);
        state.qmail_newu_calls = {kNewuCall};
        state.killall_calls = {kReloadCall};
        return state;
    }
};

TEST_F(DomainSwitchStepsTest, TurningOffWithoutRcpthostsStillDisablesTheDomainInTheStore) {
    ASSERT_EQ(unlink("/var/qmail/control/rcpthosts"), 0);
    const auto result = run_sorvane(joined({"--turn-off-domain", "--domain-name=example.test"}, lists()));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to remove domain mailbox record from assign file\n");
    ServerState expected = off_state();
    expected.rcpthosts = "<absent>";
    expected.virtualdomains = seeded_server_state().virtualdomains;
    expect_server_state(read_server_state(), expected);
}

TEST_F(DomainSwitchStepsTest, TurningOnWithABrokenRcpthostsStillEnablesTheDomainInTheStore) {
    expect_silent_success(run_sorvane(joined({"--turn-off-domain", "--domain-name=example.test"}, lists())));
    const std::string rcpthosts = "/var/qmail/control/rcpthosts";
    ASSERT_EQ(unlink(rcpthosts.c_str()), 0);
    ASSERT_EQ(mkdir(rcpthosts.c_str(), 0755), 0);
    const auto result = run_sorvane(
        joined(joined({"--turn-on-domain", "--domain-name=example.test"}, lists()), {"--set-reject"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("Unable to add record to rcpthosts.\n"), std::string::npos) << result.out;
    // Nothing was put inside the directory that stood for rcpthosts.
    ASSERT_EQ(rmdir(rcpthosts.c_str()), 0);
    ServerState expected = off_state();
    expected.rcpthosts = "<absent>";
    const auto on = views({kDomain, kAliasOne, kAliasTwo});
    expected.handler_rows = expected_handler_rows(on);
    expected.auth_domains = expected_auth_domains(on);
    expected.auth_users = expected_auth_users(on);
    expected.qmail_newu_calls = repeated(kNewuCall, 2);
    expected.killall_calls = repeated(kReloadCall, 2);
    expect_server_state(read_server_state(), expected);
}

class CatchallAddressTest : public DomainCommandTest {
protected:
    // The command is refused with one line on both streams, status 1, and
    // the server is left exactly as seeded.
    static void expect_refused(const std::vector<std::string>& args, const std::string& email) {
        const auto result = run_sorvane(args);
        const std::string line = "Catch-all address " + email + " refused: it needs a local part and a domain\n";
        EXPECT_EQ(result.status, 1) << email;
        EXPECT_EQ(result.out, line);
        EXPECT_EQ(result.err, line);
        expect_server_state(read_server_state(), seeded_server_state());
    }
};

TEST_F(CatchallAddressTest, TurningOnRefusesAnAddressWithoutLocalPartOrDomainBeforeAnyChange) {
    for (const std::string email : {"info", "@x.test", "info@", "@"})
        expect_refused(joined(joined({"--turn-on-domain", "--domain-name=example.test"}, seeded_session_lists()),
                              {"--set-catchall", "--email=" + email}),
                       email);
}

TEST_F(CatchallAddressTest, DomainAliasCommandsRefuseItBeforeAnyChange) {
    expect_refused(joined({"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=" + kThird,
                           "--set-catchall", "--email=@x.test"},
                          seeded_session_lists()),
                   "@x.test");
    expect_refused(joined({"--rename-domain-alias", "--domain-name=example.test",
                           "--old-domain-alias-name=" + kAliasTwo, "--new-domain-alias-name=" + kThird,
                           "--set-catchall", "--email=info@"},
                          seeded_session_lists()),
                   "info@");
}

TEST_F(CatchallAddressTest, AWholeAddressIsStillTheCatchAll) {
    expect_silent_success(run_sorvane(joined(
        {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=" + kThird, "--set-catchall",
         "--email=info@x.test"},
        seeded_session_lists())));
    ServerState expected = seeded_server_state();
    expected.rcpthosts += kThird + "\n";
    expected.virtualdomains += kThird + ":" + kDomain + "\n";
    expected.key_dirs = sorted_lines(expected.key_dirs + copied_key_dir_lines(kDomain, kThird));
    const auto all = views({kDomain, kAliasOne, kAliasTwo, kThird});
    expected.handler_rows = expected_handler_rows(all);
    expected.auth_domains = expected_auth_domains(all);
    expected.auth_users = expected_auth_users(all);
    expected.qmail_newu_calls = {kNewuCall};
    expected.killall_calls = {kReloadCall};
    expect_server_state(read_server_state(), expected);
}

const std::string kAddMailnameHelp =
    "add a mailname\n"
    "Usage: --add-mailname --domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]\n"
    "\t[--default-domain-quota=<quota>] [--wait-stdin]\n"
    "Allowed options to add a mailname:\n"
    "  --domain-name arg          domain name (mandatory)\n"
    "  --mailname arg             mailname (mandatory)\n"
    "  --disk-quota arg           disk quota\n"
    "  --default-domain-quota arg domain disk mailbox quota, i.e. the default one\n"
    "  --wait-stdin               wait for additional mail data from STDIN\n"
    "  -h [ --help ]              displays this help message\n"
    "\n";

using DefaultDomainQuotaTest = DomainCommandTest;

TEST_F(DefaultDomainQuotaTest, ANonNumberIsRefusedAsDiskQuotaRefusesIt) {
    for (const std::string quota : {"10MB", "lots", "1.5", "-"}) {
        const auto result = run_sorvane(
            {"--add-mailname", "--domain-name=example.test", "--mailname=new", "--default-domain-quota=" + quota});
        const std::string message = "the argument ('" + quota + "') for option '--default-domain-quota' is invalid";
        EXPECT_EQ(result.status, 1) << quota;
        EXPECT_EQ(result.err, message + "\n");
        EXPECT_EQ(result.out, message + "\n" + kAddMailnameHelp);
        expect_server_state(read_server_state(), seeded_server_state());
    }
}

TEST_F(DefaultDomainQuotaTest, AWholeNumberIsTakenAndChangesNothingElse) {
    expect_silent_success(run_sorvane({"--set-mailbox-disk-quota", "--domain-name=example.test", "--mailname=john",
                                       "--disk-quota=5000", "--default-domain-quota=-1048576"}));
    ServerState expected = seeded_server_state();
    expected.quota_rows = sorted_lines(without_lines(expected.quota_rows, "example.test|john|") +
                                       quota_row(kDomain, "john", "5000B"));
    expected.mail_tree =
        with_file_content(expected.mail_tree, "example.test/john/Maildir/maildirsize",
                          maildirsize_text(quota_header("john", 5000), seeded_message_size(), 1), "0644");
    expect_server_state(read_server_state(), expected);
}

}  // namespace
}  // namespace sorvane::test
