// What a panel customer can type into a bounce phrase, a catch-all address,
// a domain name or a quota, played as an attacker against the seeded server:
// control bytes that would hide a command in a pasted line, shell syntax
// that qmail's /bin/sh could run, the host's own names that would hand
// root's and postmaster's mail to a customer, and quotas that wrap around.
// Every refusal ends with status 1 and leaves every file and row as seeded.
#include "e2e/domain_test_support.h"

#include <regex>

namespace sorvane::test {
namespace {

// Standard error without the "sorvane[<pid>]: " that the log's copy puts in
// front of each message.
std::string without_pids(const std::string& err) {
    return std::regex_replace(err, std::regex("sorvane\\[[0-9]+\\]: "), "");
}

const std::string kLocals = "/var/qmail/control/locals";
const std::string kControlMe = "/var/qmail/control/me";
const std::string kDefaultFile = kMailnamesDir + "/" + kDomain + "/.qmail-default";

class HostileNamesTest : public DomainCommandTest {
protected:
    void SetUp() override {
        DomainCommandTest::SetUp();
        // The host's names as a configured server lists them: control/me
        // (a name of its own here) and the resolved name mx.hosting.test.
        write_file(kControlMe, "mail.hosting.test\n", 0644);
        write_file(kLocals, "localhost\nmail.hosting.test\nmx.hosting.test\n", 0644);
        before_ = read_server_state();
    }

    // The command ends 1 with line on standard error (and, when printed
    // by the utility layer, on standard output), and locals is unchanged.
    // Tests that run many commands compare the whole server once, at their
    // end (expect_unchanged): reading it back takes seconds.
    void expect_refused_quickly(const std::vector<std::string>& args, const std::string& line, bool on_stdout) {
        const auto result = run_sorvane(args);
        EXPECT_EQ(result.status, 1) << args[0] << " " << line;
        EXPECT_EQ(without_pids(result.err), line + "\n") << args[0];
        EXPECT_EQ(result.out, on_stdout ? line + "\n" : "") << args[0];
        EXPECT_EQ(read_file(kLocals), "localhost\nmail.hosting.test\nmx.hosting.test\n");
        EXPECT_EQ(read_file(kControlMe), "mail.hosting.test\n");
    }

    // Every file and row as before the test's commands.
    void expect_unchanged() { expect_server_state(read_server_state(), before_); }

    // One refused command, then the whole server compared.
    void expect_refused(const std::vector<std::string>& args, const std::string& line, bool on_stdout) {
        expect_refused_quickly(args, line, on_stdout);
        expect_unchanged();
    }

    static std::vector<std::string> turn_on(const std::vector<std::string>& action) {
        return joined(joined({"--turn-on-domain", "--domain-name=" + kDomain}, seeded_session_lists()), action);
    }
    static std::vector<std::string> add_alias(const std::string& alias, const std::vector<std::string>& action) {
        return joined(joined({"--add-domain-alias", "--domain-name=" + kDomain, "--domain-alias-name=" + alias},
                             seeded_session_lists()),
                      action);
    }
    static std::vector<std::string> rename_alias(const std::string& alias, const std::vector<std::string>& action) {
        return joined(joined({"--rename-domain-alias", "--domain-name=" + kDomain,
                              "--old-domain-alias-name=" + kAliasOne, "--new-domain-alias-name=" + alias},
                             seeded_session_lists()),
                      action);
    }

    // The three commands that take a bounce phrase or a catch-all address.
    void expect_action_refused(const std::vector<std::string>& action, const std::string& line) {
        expect_refused(turn_on(action), line, true);
        expect_refused(add_alias("alias-three.test", action), line, true);
        expect_refused(rename_alias("alias-three.test", action), line, true);
    }

    ServerState before_;
};

TEST_F(HostileNamesTest, BouncePhraseWithACarriageReturnAndABraceListIsRefused) {
    expect_action_refused({"--set-bounce", "--phrase=x\r{touch,pwned}"},
                          "Bounce phrase refused: it holds the control character \\r");
}

TEST_F(HostileNamesTest, CatchallAddressWithACarriageReturnIsRefused) {
    expect_action_refused({"--set-catchall", "--email=x@y.test\r{rm,-rf,--,/var/qmail/mailnames}"},
                          "Catch-all address refused: it holds the control character \\r");
}

TEST_F(HostileNamesTest, EveryControlByteAndDelIsRefusedInPhraseAndAddress) {
    for (int byte = 1; byte < 0x20; ++byte) {
        const std::string bad(1, static_cast<char>(byte));
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", byte);
        std::string name = hex;
        if (byte == '\t')
            name = "\\t";
        else if (byte == '\n')
            name = "\\n";
        else if (byte == '\r')
            name = "\\r";
        else if (byte == 0x1b)
            name = "\\e";
        expect_refused_quickly(turn_on({"--set-bounce", "--phrase=gone" + bad + "away"}),
                               "Bounce phrase refused: it holds the control character " + name, true);
        expect_refused_quickly(turn_on({"--set-catchall", "--email=boss" + bad + "@y.test"}),
                               "Catch-all address refused: it holds the control character " + name, true);
    }
    expect_refused_quickly(turn_on({"--set-bounce", "--phrase=gone\x7f"}),
                           "Bounce phrase refused: it holds the control character \\x7f", true);
    expect_refused_quickly(turn_on({"--set-catchall", "--email=boss@y.test\x7f"}),
                           "Catch-all address refused: it holds the control character \\x7f", true);
    expect_unchanged();
}

// qmail runs the bounce line with /bin/sh -c; run as qmail does, with a
// stand-in bouncesaying that prints how many arguments it got and the
// first one, the phrase must arrive as one literal word and nothing run.
class BounceLineShellTest : public HostileNamesTest, public ::testing::WithParamInterface<const char*> {
protected:
    ProcessResult run_bounce_line(const std::string& phrase) {
        const auto result = run_sorvane(turn_on({"--set-bounce", "--phrase=" + phrase}));
        EXPECT_EQ(result.status, 0) << result.err;
        const std::string line = read_file(kDefaultFile);
        EXPECT_EQ(line.substr(0, 14), "|bouncesaying ");
        EXPECT_EQ(line.back(), '\n');
        const std::string bin = scratch_dir() + "/bin";
        work_ = scratch_dir() + "/work";
        run_process({"/bin/mkdir", "-p", bin, work_});
        write_file(bin + "/bouncesaying", "#!/bin/sh\nprintf '%s\\n%s' \"$#\" \"$1\"\n", 0755);
        return run_process({"/usr/bin/env", "-C", work_, "PATH=" + bin + ":/usr/bin:/bin", GetParam(), "-c",
                            line.substr(1, line.size() - 2)});
    }
    std::string work_;
};

TEST_P(BounceLineShellTest, PhraseWithShellSyntaxIsWrittenAsOneLiteralWord) {
    const std::string phrase = "no {a,b} !x ! $(touch pwned) `touch pwned2` ~root #x *?[a] {touch,pwned3} ^x; =y";
    const auto result = run_bounce_line(phrase);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "1\n" + phrase);
    EXPECT_EQ(run_process({"/bin/ls", "-A", work_}).out, "");
}

INSTANTIATE_TEST_SUITE_P(Shells, BounceLineShellTest, ::testing::Values("/bin/sh", "/usr/bin/bash"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param).find("bash") != std::string::npos ? "bash" : "sh";
                         });

// Each of the host's own names against the four commands that make a name
// hosted.
struct HostName {
    std::string name;
    std::string reason;
};

const std::vector<HostName>& host_names() {
    static const std::vector<HostName> names = {
        {"localhost", "it names the local host"},
        {"localhost.localdomain", "it names the local host"},
        {"mail.hosting.test", "it is this host's own name"},
        {"mx.hosting.test", "it is this host's own name"},
        {"test", "it has a single label"},
        {"postmaster", "it has a single label"},
        {"1.2.3.4", "it is an address literal"},
        {"10.0.0.1", "it is an address literal"},
    };
    return names;
}

TEST_F(HostileNamesTest, HostsOwnNamesAreRefusedAsDomains) {
    for (const HostName& host : host_names()) {
        expect_refused_quickly({"--add-domain", "--domain-name=" + host.name},
                               "Unable to use domain " + host.name + ": " + host.reason, false);
        expect_refused_quickly({"--rename-domain", "--old-domain-name=" + kNeighbour, "--new-domain-name=" + host.name},
                               "Unable to use domain " + host.name + ": " + host.reason, false);
    }
    expect_unchanged();
}

TEST_F(HostileNamesTest, HostsOwnNamesAreRefusedAsDomainAliases) {
    for (const HostName& host : host_names()) {
        expect_refused_quickly(add_alias(host.name, {"--set-reject"}),
                               "Unable to use domain alias " + host.name + ": " + host.reason, false);
        expect_refused_quickly(rename_alias(host.name, {"--set-reject"}),
                               "Unable to use domain alias " + host.name + ": " + host.reason, false);
    }
    expect_unchanged();
}

TEST_F(HostileNamesTest, HostsNameInUpperCaseIsRefused) {
    expect_refused({"--add-domain", "--domain-name=MX.Hosting.Test"},
                   "Unable to use domain mx.hosting.test: it is this host's own name", false);
}

TEST_F(HostileNamesTest, BracketedAndIpv6LiteralsAreRefused) {
    for (const std::string literal : {"[1.2.3.4]", "[ipv6:::1]", "::1", "fe80::1"}) {
        for (const auto& args : {std::vector<std::string>{"--add-domain", "--domain-name=" + literal},
                                 add_alias(literal, {"--set-reject"})}) {
            const auto result = run_sorvane(args);
            EXPECT_EQ(result.status, 1) << literal;
            EXPECT_NE(result.err.find("domain has incorrect format."), std::string::npos) << result.err;
            expect_server_state(read_server_state(), before_);
        }
    }
}

// Another name that locals holds keeps the behaviour it always had: hosting
// it takes it out of locals.
TEST_F(HostileNamesTest, OtherNameInLocalsIsStillHosted) {
    write_file(kLocals, "localhost\nmail.hosting.test\nmx.hosting.test\nold-local.test\n", 0644);
    const auto result = run_sorvane({"--add-domain", "--domain-name=old-local.test"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(kLocals), "localhost\nmail.hosting.test\nmx.hosting.test\n");
}

// A quota that does not fit a signed 64-bit number of bytes once its unit
// is applied: 16777217 TB is 2^64 + 2^40 bytes, which wraps to 1 TB.
TEST_F(HostileNamesTest, DocumentQuotaThatOverflowsInBytesIsRefused) {
    for (const std::string quota : {R"("mbox_quota": 16777217, "mbox_quota_unit": "TB")",
                                    R"("mbox_quota": 8388608, "mbox_quota_unit": "TB")",
                                    R"("mbox_quota": 9007199254740992, "mbox_quota_unit": "KB")"}) {
        const std::string document = R"({"domain": {"name": "new.test", "mails": [{"name": "boss", )" + quota + "}]}}";
        const auto result = run_sorvane_with_input({"--add-domain", "--domain-name=new.test", "--wait-stdin"}, document);
        EXPECT_EQ(result.status, 1) << quota;
        EXPECT_NE(without_pids(result.err).find("Mailbox quota of 'boss' is too large: "), std::string::npos)
            << result.err;
        expect_server_state(read_server_state(), before_);
    }
}

TEST_F(HostileNamesTest, CommandLineQuotaBeyondSigned64BitsIsRefused) {
    for (const std::string quota : {"9223372036854775808", "-9223372036854775809", "99999999999999999999"}) {
        const auto result = run_sorvane(
            {"--set-mailbox-disk-quota", "--domain-name=" + kDomain, "--mailname=info", "--disk-quota=" + quota});
        EXPECT_EQ(result.status, 1) << quota;
        EXPECT_NE(result.err.find("the argument ('" + quota + "') for option '--disk-quota' is invalid"),
                  std::string::npos)
            << result.err;
        expect_server_state(read_server_state(), before_);
    }
}

}  // namespace
}  // namespace sorvane::test
