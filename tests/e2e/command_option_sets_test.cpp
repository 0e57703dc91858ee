// The option sets of the nineteen commands, through the built binary: the
// help of each, the missing-option error, and that a command with all its
// mandatory options gets past its options and runs.
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "e2e/tree_snapshot.h"
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

struct CommandCase {
    std::string command_switch;
    std::string latest_mandatory;  // the mandatory option declared last
    std::vector<std::string> mandatory_options;
    std::string help;
};

const std::vector<CommandCase> kCommands = {
    {"--add-domain", "domain-name",
     {"--domain-name=example.test"},
     "add a domain\n"
     "Usage: --add-domain --domain-name=<domain> [--disk-quota=quota] [--wait-stdin]\n"
     "Allowed options to add a domain:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --disk-quota arg      disk quota\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--remove-domain", "domain-name",
     {"--domain-name=example.test"},
     "remove a domain\n"
     "Usage: --remove-domain --domain-name=<domain>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to remove a domain:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--rename-domain", "new-domain-name",
     {"--old-domain-name=old.test", "--new-domain-name=new.test"},
     "rename a domain\n"
     "Usage: --rename-domain --old-domain-name=<domain> --new-domain-name=<domain>\n"
     "Allowed options to rename a domain:\n"
     "  --old-domain-name arg old domain name (mandatory)\n"
     "  --new-domain-name arg new domain name (mandatory)\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--turn-on-domain", "domain-name",
     {"--domain-name=example.test"},
     "enable a domain\n"
     "Usage: --turn-on-domain --domain-name=<domain> { --set-bounce --phrase=<phrase> | --set-catchall --email=<email_address> | --set-reject }\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to enable a domain:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  --set-catchall        set a domain catchall address\n"
     "  --email arg           domain alias name\n"
     "  --set-bounce          set a domain bounce\n"
     "  --phrase arg          phrase\n"
     "  --set-reject          set domain reject flag\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--turn-off-domain", "domain-name",
     {"--domain-name=example.test"},
     "disable a domain\n"
     "Usage: --turn-off-domain --domain-name=<domain>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to disable a domain:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--set-domain-disk-quota", "disk-quota",
     {"--domain-name=example.test", "--disk-quota=1048576"},
     "set a domain disk quota\n"
     "Usage: --set-domain-disk-quota --domain-name=<domain> --disk-quota=quota\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "\tSpecify only mailnames without personal quota via --mail-addresses.\n"
     "Allowed options to set a domain disk quota:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --disk-quota arg      disk quota (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--add-mailname", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
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
     "\n"},
    {"--remove-mailname", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
     "remove a mailname\n"
     "Usage: --remove-mailname --domain-name=<domain_name> --mailname=<mail_name>\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to remove a mailname:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --mailname arg        mailname (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--rename-mailname", "new-mailname",
     {"--domain-name=example.test", "--old-mailname=john", "--new-mailname=jane"},
     "rename a mailname\n"
     "Usage: --rename-mailname --domain-name=<domain_name> --old-mailname=<old_mail_name> --new-mailname=<new_mail_name> [--mail-domain-disabled|-D]\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "        The noncrypted password is transferred in the environment variable QVT_PASSWORD,\n"
     "        or crypted password is transferred in the environment variable QVT_CRYPTED_PASSWORD\n"
     "Allowed options to rename a mailname:\n"
     "  --domain-name arg              domain name (mandatory)\n"
     "  --old-mailname arg             old mailname (mandatory)\n"
     "  --new-mailname arg             new mailname (mandatory)\n"
     "  -D [ --mail-domain-disabled ]  the domain is disabled (currently unused)\n"
     "  --domain-aliases arg           list of domain aliases\n"
     "  --mail-addresses arg           list of mailnames together with their aliases\n"
     "  --wait-stdin                   wait for additional mail data from STDIN\n"
     "  -h [ --help ]                  displays this help message\n"
     "\n"},
    {"--add-mailbox", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
     "add mailname's mailbox\n"
     "Usage: --add-mailbox --domain-name=<domain_name> --mailname=<mail_name> [--mail-domain-disabled|-D] [--mail-delivery-disabled]\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "        The noncrypted password is transferred in the environment variable QVT_PASSWORD,\n"
     "        or crypted password is transferred in the environment variable QVT_CRYPTED_PASSWORD\n"
     "Allowed options to add mailname's mailbox:\n"
     "  --domain-name arg              domain name (mandatory)\n"
     "  --mailname arg                 mailname (mandatory)\n"
     "  -D [ --mail-domain-disabled ]  the domain is disabled (currently unused)\n"
     "  --mail-delivery-disabled       delivery is disabled\n"
     "  --domain-aliases arg           list of domain aliases\n"
     "  --mail-addresses arg           list of mailnames together with their aliases\n"
     "  --wait-stdin                   wait for additional mail data from STDIN\n"
     "  -h [ --help ]                  displays this help message\n"
     "\n"},
    {"--remove-mailbox", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
     "remove mailname's mailbox\n"
     "Usage: --remove-mailbox --domain-name=<domain_name> --mailname=<mail_name>\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to remove mailname's mailbox:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --mailname arg        mailname (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--set-password", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
     "set mailname's password\n"
     "Usage: --set-password --domain-name=<domain_name> --mailname=<mail_name> [--mail-domain-disabled|-D]\n"
     "\t[--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "        The noncrypted password is transferred in the environment variable QVT_PASSWORD,\n"
     "        or crypted password is transferred in the environment variable QVT_CRYPTED_PASSWORD\n"
     "Allowed options to set mailname's password:\n"
     "  --domain-name arg              domain name (mandatory)\n"
     "  --mailname arg                 mailname (mandatory)\n"
     "  -D [ --mail-domain-disabled ]  the domain is disabled (currently unused)\n"
     "  --domain-aliases arg           list of domain aliases\n"
     "  --mail-addresses arg           list of mailnames together with their aliases\n"
     "  --wait-stdin                   wait for additional mail data from STDIN\n"
     "  -h [ --help ]                  displays this help message\n"
     "\n"},
    {"--get-mailbox-size", "mailname",
     {"--domain-name=example.test", "--mailname=john"},
     "get mailbox size\n"
     "Usage: --get-mailbox-size [--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>\n"
     "Allowed options to get mailbox size:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --mailname arg        mailname (mandatory)\n"
     "  --in-blocks           count result in blocks rather than bytes\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--set-mailbox-disk-quota", "disk-quota",
     {"--domain-name=example.test", "--mailname=john", "--disk-quota=1048576"},
     "set mailbox disk quota\n"
     "Usage: --set-mailbox-disk-quota --domain-name=<domain_name> --mailname=<mail_name> --disk-quota=<quota>\n"
     "\t[--default-domain-quota=<quota>] [--wait-stdin]\n"
     "Allowed options to set mailbox disk quota:\n"
     "  --domain-name arg          domain name (mandatory)\n"
     "  --mailname arg             mailname (mandatory)\n"
     "  --disk-quota arg           disk quota (mandatory)\n"
     "  --default-domain-quota arg domain disk mailbox quota, i.e. the default one\n"
     "  --wait-stdin               wait for additional mail data from STDIN\n"
     "  -h [ --help ]              displays this help message\n"
     "\n"},
    {"--add-alias", "alias",
     {"--domain-name=example.test", "--mailname=john", "--alias=jo"},
     "add alias for a given mailname\n"
     "Usage: --add-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to add alias for a given mailname:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --mailname arg        mailname (mandatory)\n"
     "  --alias arg           alias email (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--remove-alias", "alias",
     {"--domain-name=example.test", "--mailname=john", "--alias=jo"},
     "remove alias for a given mailname\n"
     "Usage: --remove-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to remove alias for a given mailname:\n"
     "  --domain-name arg     domain name (mandatory)\n"
     "  --mailname arg        mailname (mandatory)\n"
     "  --alias arg           alias email (mandatory)\n"
     "  --domain-aliases arg  list of domain aliases\n"
     "  --mail-addresses arg  list of mailnames together with their aliases\n"
     "  --wait-stdin          wait for additional mail data from STDIN\n"
     "  -h [ --help ]         displays this help message\n"
     "\n"},
    {"--add-domain-alias", "domain-alias-name",
     {"--domain-name=example.test", "--domain-alias-name=alias.test"},
     "add a domain alias\n"
     "Usage: --add-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name> <--set-bounce 'text'| --set-catchall 'email' | --set-reject>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to add a domain alias:\n"
     "  --domain-name arg       domain name (mandatory)\n"
     "  --domain-alias-name arg domain alias name (mandatory)\n"
     "  --set-bounce            set a domain bounce\n"
     "  --phrase arg            phrase\n"
     "  --set-catchall          set a domain catchall address\n"
     "  --email arg             domain alias name\n"
     "  --set-reject            set domain reject flag\n"
     "  --domain-aliases arg    list of domain aliases\n"
     "  --mail-addresses arg    list of mailnames together with their aliases\n"
     "  --wait-stdin            wait for additional mail data from STDIN\n"
     "  -h [ --help ]           displays this help message\n"
     "\n"},
    {"--del-domain-alias", "domain-alias-name",
     {"--domain-name=example.test", "--domain-alias-name=alias.test"},
     "remove a domain alias\n"
     "Usage: --del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>\n"
     "Allowed options to remove a domain alias:\n"
     "  --domain-name arg       domain name (mandatory)\n"
     "  --domain-alias-name arg domain alias name (mandatory)\n"
     "  --domain-aliases arg    list of domain aliases\n"
     "  --mail-addresses arg    list of mailnames together with their aliases\n"
     "  --wait-stdin            wait for additional mail data from STDIN\n"
     "  -h [ --help ]           displays this help message\n"
     "\n"},
    {"--rename-domain-alias", "new-domain-alias-name",
     {"--domain-name=example.test", "--old-domain-alias-name=old-alias.test", "--new-domain-alias-name=new-alias.test"},
     "rename a given domain alias\n"
     "Usage: --rename-domain-alias --domain-name=<domain_name> --old-domain-alias-name=<old_domain_alias_name> --new-domain-alias-name=<new_domain_alias_name> <--set-bounce 'text'| --set-catchall 'email' | --set-reject>\n"
     "\t[--domain-aliases=<alias1,alias2,...> --mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>] [--wait-stdin]\n"
     "Allowed options to rename a given domain alias:\n"
     "  --domain-name arg           domain name (mandatory)\n"
     "  --old-domain-alias-name arg old domain alias name (mandatory)\n"
     "  --new-domain-alias-name arg new domain alias name (mandatory)\n"
     "  --set-bounce                set a domain bounce\n"
     "  --phrase arg                phrase\n"
     "  --set-catchall              set a domain catchall address\n"
     "  --email arg                 domain alias name\n"
     "  --set-reject                set domain reject flag\n"
     "  --domain-aliases arg        list of domain aliases\n"
     "  --mail-addresses arg        list of mailnames together with their aliases\n"
     "  --wait-stdin                wait for additional mail data from STDIN\n"
     "  -h [ --help ]               displays this help message\n"
     "\n"},
};

// The commands whose back-end steps query the session data: with nothing
// on the command line they read standard input.
const std::set<std::string> kRequireSessionData = {
    "--remove-domain",   "--turn-off-domain", "--set-domain-disk-quota", "--del-domain-alias",
    "--remove-mailname", "--rename-mailname", "--add-mailbox",            "--remove-mailbox",
    "--set-password",    "--add-alias",       "--remove-alias"};

struct ExpectedRun {
    int status;
    std::string out;
};

// What the commands that need no session data give on the empty sandbox
// server (no mail names directory, no stores).
const std::map<std::string, ExpectedRun> kEmptyServerRuns = {
    {"--add-mailname", {1, "Unable to make /var/qmail/mailnames/example.test/john dir: No such file or directory\n"}},
    {"--set-mailbox-disk-quota",
     {1, "unable to change to mbox folder /var/qmail/mailnames/example.test/john: No such file or directory\n"}},
};

const std::string kRefusedDocument =
    "Fatal error: std::runtime_error(Failed to read and parse session mail data from STDIN. See mail log for "
    "details.)\n";

// Test names and failure messages show the command, not the bytes.
void PrintTo(const CommandCase& command, std::ostream* out) {
    *out << command.command_switch;
}

std::string missing_option_message(const CommandCase& command) {
    return "mandatory option \"--" + command.latest_mandatory + "\" is not specified\n";
}

std::vector<std::string> command_line(const CommandCase& command, const std::vector<std::string>& options) {
    std::vector<std::string> args = {command.command_switch};
    args.insert(args.end(), options.begin(), options.end());
    return args;
}

class CommandOptionSetTest : public SandboxTest, public ::testing::WithParamInterface<CommandCase> {};

TEST_P(CommandOptionSetTest, HelpShowsDescriptionUsageAndEveryOption) {
    const auto result = run_sorvane(command_line(GetParam(), {"--help"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, GetParam().help);
    EXPECT_EQ(result.err, "");
}

TEST_P(CommandOptionSetTest, ShortHelpSwitchShowsTheSameHelp) {
    const auto result = run_sorvane(command_line(GetParam(), {"-h"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, GetParam().help);
    EXPECT_EQ(result.err, "");
}

TEST_P(CommandOptionSetTest, HelpNeedsNoMandatoryOption) {
    auto options = GetParam().mandatory_options;
    options.pop_back();
    options.push_back("--help");
    const auto result = run_sorvane(command_line(GetParam(), options));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, GetParam().help);
    EXPECT_EQ(result.err, "");
}

TEST_P(CommandOptionSetTest, WithoutOptionsNamesTheLatestDeclaredMandatoryOption) {
    const auto before = snapshot_system_trees();
    const auto result = run_sorvane(command_line(GetParam(), {}));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, missing_option_message(GetParam()));
    EXPECT_EQ(result.out, missing_option_message(GetParam()) + GetParam().help);
    EXPECT_EQ(snapshot_system_trees(), before);
}

TEST_P(CommandOptionSetTest, EachMandatoryOptionLeftOutIsNamed) {
    const auto& mandatory = GetParam().mandatory_options;
    for (std::size_t left_out = 0; left_out < mandatory.size(); ++left_out) {
        auto options = mandatory;
        const std::string missing = options[left_out].substr(0, options[left_out].find('='));
        options.erase(options.begin() + static_cast<std::ptrdiff_t>(left_out));
        const auto result = run_sorvane(command_line(GetParam(), options));
        const std::string message = "mandatory option \"" + missing + "\" is not specified\n";
        EXPECT_EQ(result.status, 1) << missing;
        EXPECT_EQ(result.err, message);
        EXPECT_EQ(result.out, message + GetParam().help);
    }
}

// With every mandatory option the option layer lets the command run: no
// option error, no help. A command that requires session data and finds
// standard input at its end refuses it before it changes anything.
TEST_P(CommandOptionSetTest, WithMandatoryOptionsTheCommandRuns) {
    const auto before = snapshot_system_trees();
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Null;
    const auto result = run_sorvane(command_line(GetParam(), GetParam().mandatory_options), options);
    EXPECT_EQ(result.out.find(GetParam().help), std::string::npos) << result.out;
    EXPECT_EQ(result.err.find("is not specified\n" + GetParam().help), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("unrecognised option"), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("is not available in this build"), std::string::npos) << result.err;
    if (kRequireSessionData.count(GetParam().command_switch) != 0) {
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, kRefusedDocument);
        ASSERT_GE(result.err.size(), kRefusedDocument.size());
        EXPECT_EQ(result.err.substr(result.err.size() - kRefusedDocument.size()), kRefusedDocument);
        EXPECT_EQ(snapshot_system_trees(), before);
    }
    const auto expected = kEmptyServerRuns.find(GetParam().command_switch);
    if (expected != kEmptyServerRuns.end()) {
        EXPECT_EQ(result.status, expected->second.status);
        EXPECT_EQ(result.out, expected->second.out);
    }
}

// The size of a mailbox that is not there: nothing to count, 0.
TEST_F(SandboxTest, GetMailboxSizeOfAMissingMailboxIsZero) {
    const auto result = run_sorvane({"--get-mailbox-size", "--domain-name=example.test", "--mailname=john"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Maildir subfolder 'cur' stat failed\nUnable to calculate Maildir++ size: Input/output error\n0");
}

TEST_P(CommandOptionSetTest, UnknownOptionIsReportedWithTheHelp) {
    auto options = GetParam().mandatory_options;
    options.push_back("--no-such-option");
    const auto result = run_sorvane(command_line(GetParam(), options));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "unrecognised option '--no-such-option'\n");
    EXPECT_EQ(result.out, "unrecognised option '--no-such-option'\n" + GetParam().help);
}

std::string test_name(const ::testing::TestParamInfo<CommandCase>& info) {
    std::string name;
    bool upper = true;
    for (const char c : info.param.command_switch) {
        if (c == '-') {
            upper = true;
            continue;
        }
        name += upper ? static_cast<char>(c - 'a' + 'A') : c;
        upper = false;
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(AllCommands, CommandOptionSetTest, ::testing::ValuesIn(kCommands), test_name);

}  // namespace
}  // namespace sorvane::test
