// Option errors and name checks through the built binary: what each stream
// shows, the exit status, and that nothing on disk changed.
#include <cctype>
#include <string>
#include <vector>

#include "e2e/server_state.h"
#include "e2e/tree_snapshot.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

const std::string kAddDomainHelp =
    "add a domain\n"
    "Usage: --add-domain --domain-name=<domain> [--disk-quota=quota] [--wait-stdin]\n"
    "Allowed options to add a domain:\n"
    "  --domain-name arg     domain name (mandatory)\n"
    "  --disk-quota arg      disk quota\n"
    "  --wait-stdin          wait for additional mail data from STDIN\n"
    "  -h [ --help ]         displays this help message\n"
    "\n";

const std::string kLabel63(63, 'a');
const std::string kLabel64(64, 'a');

std::string lower_case(std::string name) {
    for (auto& c : name)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return name;
}

// A refused command: its status and both streams, and the trees untouched.
// An accepted one runs for real on a server without domains.
class OptionErrorTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_empty_server();
    }

    ProcessResult run_refused(const std::vector<std::string>& args) {
        const auto before = snapshot_system_trees();
        auto result = run_sorvane(args);
        EXPECT_EQ(snapshot_system_trees(), before) << "the trees changed";
        return result;
    }

    // Expects an option error: the message on standard error, then repeated
    // on standard output ahead of the command's help; status 1.
    void expect_option_error(const std::vector<std::string>& args, const std::string& message,
                             const std::string& help) {
        const auto result = run_refused(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, message + "\n");
        EXPECT_EQ(result.out, message + "\n" + help);
    }

    // Expects a fatal error line on both streams and status 1.
    void expect_fatal_error(const std::vector<std::string>& args, const std::string& line) {
        const auto result = run_refused(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, line + "\n");
        EXPECT_EQ(result.out, line + "\n");
    }

    void expect_domain_refused(const std::string& domain, const std::string& line) {
        SCOPED_TRACE(domain);
        expect_fatal_error({"--add-domain", "--domain-name=" + domain}, line);
    }

    // The name passes and the domain is added under its converted name.
    void expect_domain_accepted(const std::string& domain, const std::string& converted) {
        SCOPED_TRACE(domain);
        const auto result = run_sorvane({"--add-domain", "--domain-name", domain});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), converted + "\n");
        write_file("/var/qmail/control/rcpthosts", "", 0644);
    }

    void expect_mail_name_refused(const std::string& name, const std::string& line) {
        SCOPED_TRACE(name);
        expect_fatal_error({"--add-mailname", "--domain-name=example.test", "--mailname=" + name}, line);
    }

    // The name passes and the mail name is added under its lower-case form.
    void expect_mail_name_accepted(const std::string& name) {
        SCOPED_TRACE(name);
        ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=example.test"}).status, 0);
        const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname", name});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        const std::string record = mailname_record("example.test", lower_case(name), lower_case(name));
        EXPECT_EQ(read_file("/var/qmail/users/assign").substr(0, record.size()), record);
    }
};

std::string runtime_error_line(const std::string& what) {
    return "Fatal error: std::runtime_error(" + what + ")";
}

std::string idna_error_line(const std::string& what) {
    return "Fatal error: crelm::idn::IdnaError(" + what + ")";
}

TEST_F(OptionErrorTest, DomainIsNotAnAbbreviationOfDomainName) {
    expect_option_error({"--add-domain", "--domain", "example.test"}, "unrecognised option '--domain'",
                        kAddDomainHelp);
}

TEST_F(OptionErrorTest, OptionNamesAreCaseSensitive) {
    expect_option_error({"--add-domain", "--Domain-Name=example.test"}, "unrecognised option '--Domain-Name=example.test'",
                        kAddDomainHelp);
}

TEST_F(OptionErrorTest, MissingValueIsAnOptionError) {
    expect_option_error({"--add-domain", "--domain-name"},
                        "the required argument for option '--domain-name' is missing", kAddDomainHelp);
}

TEST_F(OptionErrorTest, ValueGivenTwiceIsAnOptionError) {
    expect_option_error({"--add-domain", "--domain-name=a.test", "--domain-name=b.test"},
                        "option '--domain-name' cannot be specified more than once", kAddDomainHelp);
}

TEST_F(OptionErrorTest, FlagGivenTwiceIsAnOptionError) {
    expect_option_error({"--add-domain", "--domain-name=a.test", "--wait-stdin", "--wait-stdin"},
                        "option '--wait-stdin' cannot be specified more than once", kAddDomainHelp);
}

TEST_F(OptionErrorTest, NonNumericQuotaIsAnInvalidValue) {
    expect_option_error({"--add-domain", "--domain-name=a.test", "--disk-quota=10MB"},
                        "the argument ('10MB') for option '--disk-quota' is invalid", kAddDomainHelp);
}

TEST_F(OptionErrorTest, StrayWordIsAnOptionError) {
    expect_option_error({"--add-domain", "--domain-name", "a.test", "b.test"},
                        "too many positional options have been specified on the command line", kAddDomainHelp);
}

TEST_F(OptionErrorTest, MalformedValueIsReportedBeforeHelpIsHonoured) {
    expect_option_error({"--add-domain", "--disk-quota=lots", "--help"},
                        "the argument ('lots') for option '--disk-quota' is invalid", kAddDomainHelp);
}

TEST_F(OptionErrorTest, ANameInTheCommandLineListsIsCheckedLikeOneInADocument) {
    const std::vector<std::vector<std::string>> commands{
        {"--turn-on-domain", "--domain-name=example.test", "--set-bounce", "--domain-aliases=x.test\ny.test"},
        {"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=x.test", "--set-reject",
         "--domain-aliases=../../etc"},
        {"--remove-mailname", "--domain-name=example.test", "--mailname=info", "--mail-addresses=info,sales\n=x"},
        {"--add-alias", "--domain-name=example.test", "--mailname=info", "--alias=sales",
         "--mail-addresses=info;a/b"}};
    for (const auto& args : commands) {
        SCOPED_TRACE(args.back());
        const auto result = run_refused(args);
        const std::string option = args.back().substr(0, args.back().find('='));
        const std::string message =
            "the argument ('" + args.back().substr(option.size() + 1) + "') for option '" + option + "' is invalid";
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, message + "\n");
        EXPECT_EQ(result.out.substr(0, message.size() + 1), message + "\n");
    }
}

TEST_F(OptionErrorTest, MalformedNameIsReportedBeforeHelpIsHonoured) {
    expect_fatal_error({"--add-domain", "--domain-name=-a.test", "--help"},
                       runtime_error_line("-a.test - domain has incorrect format."));
}

TEST_F(OptionErrorTest, HelpAnywhereAmongTheOptionsWins) {
    const auto result = run_sorvane({"--add-domain", "-h", "--disk-quota=5"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, kAddDomainHelp);
    EXPECT_EQ(result.err, "");
}

TEST_F(OptionErrorTest, ShortFlagsGroupWithHelp) {
    const auto result = run_sorvane({"--set-password", "-Dh"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.substr(0, 24), "set mailname's password\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(OptionErrorTest, ValueAttachedOrNextIsTheSame) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--add-domain", "--domain-name=example.test", "--disk-quota=-1"},
             {"--add-domain", "--domain-name", "example.test", "--disk-quota", "-1"}}) {
        const auto result = run_sorvane(args);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(read_file("/var/qmail/control/rcpthosts"), "example.test\n");
    }
}

TEST_F(OptionErrorTest, DomainNamesInAnyCaseOrScriptAreAccepted) {
    expect_domain_accepted("Example.TEST", "example.test");
    expect_domain_accepted("B\xc3\xbc" "cher.test", "xn--bcher-kva.test");
    expect_domain_accepted("a.test-", "a.test-");
    const std::string longest = kLabel63 + "." + kLabel63 + "." + kLabel63 + "." + kLabel63;
    expect_domain_accepted(longest, longest);
}

TEST_F(OptionErrorTest, LabelStartingOrEndingWithHyphenIsRefused) {
    expect_domain_refused("-a.test", runtime_error_line("-a.test - domain has incorrect format."));
    expect_domain_refused("A-.Test", runtime_error_line("a-.test - domain has incorrect format."));
}

TEST_F(OptionErrorTest, EmptyLabelsAreRefusedByIdna) {
    expect_domain_refused("a..test", idna_error_line("Invalid length"));
    expect_domain_refused(".a.test", idna_error_line("Invalid length"));
}

TEST_F(OptionErrorTest, TrailingDotIsRefusedByTheNameCheck) {
    expect_domain_refused("a.test.", runtime_error_line("a.test. - domain has incorrect format."));
}

TEST_F(OptionErrorTest, SixtyFourCharacterLabelIsRefused) {
    expect_domain_refused(kLabel64 + ".test", idna_error_line("Invalid length"));
}

TEST_F(OptionErrorTest, DomainOf256CharactersIsRefused) {
    const std::string name = kLabel63 + "." + kLabel63 + "." + kLabel63 + "." + std::string(62, 'a') + ".a";
    ASSERT_EQ(name.size(), 256u);
    expect_domain_refused(name, runtime_error_line(name + " - domain has incorrect format."));
}

TEST_F(OptionErrorTest, DomainWithBlankIsAnInvalidValue) {
    expect_option_error({"--add-domain", "--domain-name=a.test b.test"},
                        "the argument ('a.test b.test') for option '--domain-name' is invalid", kAddDomainHelp);
}

TEST_F(OptionErrorTest, MailNamesUpTo245CharactersAreAccepted) {
    expect_mail_name_accepted("John.Doe");
    expect_mail_name_accepted("o'neil+tag&x_y-z.w");
    expect_mail_name_accepted(std::string(245, 'm'));
}

TEST_F(OptionErrorTest, MailNameOf246CharactersIsRefused) {
    const std::string name(246, 'm');
    expect_mail_name_refused(name, runtime_error_line(name + " - local part of mailname has incorrect format."));
}

TEST_F(OptionErrorTest, MailNamesWithBadDotsAreRefusedLowerCased) {
    for (const std::string name : {"A..B", ".a", "A."})
        expect_mail_name_refused(name,
                                 runtime_error_line(lower_case(name) + " - local part of mailname has incorrect format."));
}

TEST_F(OptionErrorTest, MailNameWithBlankIsAnInvalidValue) {
    const auto result = run_refused({"--add-mailname", "--domain-name=example.test", "--mailname=John Doe"});
    const std::string message = "the argument ('John Doe') for option '--mailname' is invalid\n";
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(result.out.substr(0, message.size() + 15), message + "add a mailname\n");
}

TEST_F(OptionErrorTest, MailNameIsNeverIdnaConverted) {
    expect_mail_name_refused("j\xc3\xb6hn", runtime_error_line("j\xc3\xb6hn - local part of mailname has incorrect format."));
}

}  // namespace
}  // namespace sorvane::test
