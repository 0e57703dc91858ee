// The entry point and the dispatcher, through the built binary.
#include "support/sandbox.h"

namespace sorvane::test {
namespace {

const std::string kShortUsage =
    "Usage: sorvane <COMMAND> <COMMAND OPTIONS...>\n"
    "\t for a complete list of commands use ``sorvane --help-commands''\n"
    "\t for help on syntax for a particular command use ``sorvane <COMMAND> --help''\n"
    "\t for legacy complete help use ``sorvane --help-legacy''\n";

class DispatchTest : public SandboxTest {};

TEST_F(DispatchTest, NoArgumentsIsAnError) {
    const auto result = run_sorvane({});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error: no command specified\n" + kShortUsage);
}

TEST_F(DispatchTest, UnknownFirstArgumentIsAnInvalidCommand) {
    const auto result = run_sorvane({"--frobnicate"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error: invalid command --frobnicate\n" + kShortUsage);
}

TEST_F(DispatchTest, SwitchMustComeFirst) {
    const auto result = run_sorvane({"--domain-name", "example.test", "--add-domain"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Error: invalid command --domain-name\n" + kShortUsage);
}

TEST_F(DispatchTest, SwitchWithAttachedValueIsInvalid) {
    const auto result = run_sorvane({"--add-domain=example.test"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Error: invalid command --add-domain=example.test\n" + kShortUsage);
}

TEST_F(DispatchTest, SwitchIsCaseSensitive) {
    const auto result = run_sorvane({"--ADD-DOMAIN"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Error: invalid command --ADD-DOMAIN\n" + kShortUsage);
}

TEST_F(DispatchTest, ShortHelpIgnoresFurtherArguments) {
    for (const char* help : {"-h", "--help"}) {
        const auto result = run_sorvane({help, "--add-domain", "whatever"});
        EXPECT_EQ(result.status, 0) << help;
        EXPECT_EQ(result.out, kShortUsage) << help;
        EXPECT_EQ(result.err, "") << help;
    }
}

TEST_F(DispatchTest, CommandListAlignsDescriptionsAtColumn26) {
    const auto result = run_sorvane({"--help-commands", "ignored"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string expected =
        "Sorvane commands:\n"
        "--add-mailname            adds mailname to the mail domain. Optionally sets the mailbox quota\n"
        "--remove-mailname         removes mailname from the mail domain\n"
        "--rename-mailname         renames a mailname in the mail domain. Optionally sets the mailbox password.\n"
        "--add-mailbox             adds a mailbox for a given mailname. Sets the mailbox password.\n"
        "--remove-mailbox          removes a mailbox for a given mailname\n"
        "--set-password            sets the password for a mailname\n"
        "--add-alias               adds an alias for mailname\n"
        "--remove-alias            removes an alias for mailname\n"
        "--add-domain              adds mail domain\n"
        "--remove-domain           removes mail domain\n"
        "--rename-domain           renames mail domain\n"
        "--turn-on-domain          enables mail domain\n"
        "--turn-off-domain         disables mail domain\n"
        "--add-domain-alias        adds alias for <domain_name>\n"
        "--del-domain-alias        removes alias for <domain_name>\n"
        "--rename-domain-alias     renames alias for <domain_name>\n"
        "--get-mailbox-size        returns the size of mailbox for a mailname\n"
        "--set-mailbox-disk-quota  sets the disk quota for a mailbox. Negative quota == Unlimited\n"
        "--set-domain-disk-quota   sets a disk space quota to a mail domain. Negative quota == Unlimited\n"
        "--help-commands           displays sorvane commands list and exit\n"
        "--help-legacy             displays legacy sorvane help and exit\n"
        "--help-stdin              displays information about passing data to sorvane via standard input and exit\n"
        "-h, --help                displays sorvane usage summary and exit\n";
    EXPECT_EQ(result.out, expected);
}

TEST_F(DispatchTest, LegacyHelpKeepsItsTrailingBlanks) {
    const auto result = run_sorvane({"--help-legacy"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string expected =
        "Usage: sorvane [OPTIONS]... \n"
        "  --add-mailname --domain-name=<domain_name> --mailname=<mail_name> [--disk-quota=<quota>]\n"
        "        adds mailname to the mail domain. Optionally sets the mailbox quota\n"
        "  --remove-mailname --domain-name=<domain_name> --mailname=<mail_name>\n"
        "        removes mailname from the mail domain\n"
        "  --rename-mailname --domain-name=<domain_name> --old-mailname=<old_mail_name> --new-mailname=<new_mail_name>\n"
        "        renames a mailname in the mail domain. Optionally sets the mailbox password.\n"
        "  --add-mailbox --domain-name=<domain_name> --mailname=<mail_name>\n"
        "        adds a mailbox for a given mailname. Sets the mailbox password.\n"
        "  --remove-mailbox --domain-name=<domain_name> --mailname=<mail_name>\n"
        "        removes a mailbox for a given mailname\n"
        "  --set-password --domain-name=<domain_name> --mailname=<mail_name>\n"
        "        sets the password for a mailname\n"
        "  --add-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>\n"
        "        adds an alias for mailname\n"
        "  --remove-alias --domain-name=<domain_name> --mailname=<mail_name> --alias=<email_alias>\n"
        "        removes an alias for mailname\n"
        "  --add-domain --domain-name=<domain_name> [--disk-quota=<quota>]\n"
        "        adds mail domain\n"
        "  --remove-domain --domain-name=<domain_name>\n"
        "        removes mail domain\n"
        "  --rename-domain --old-domain-name=<domain> --new-domain-name=<domain>\n"
        "        renames mail domain\n"
        "  --turn-on-domain --domain-name=<domain_name>\n"
        "        enables mail domain\n"
        "  --turn-off-domain --domain-name=<domain_name>\n"
        "        disables mail domain\n"
        "  --add-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>\n"
        "        adds alias for <domain_name>\n"
        "  --del-domain-alias --domain-name=<domain_name> --domain-alias-name=<domain_alias_name>\n"
        "        removes alias for <domain_name>\n"
        "  --rename-domain-alias --domain-name=<domain_name> --old-domain-alias-name=<old_domain_alias_name> "
        "--new-domain-alias-name=<new_domain_alias_name>\n"
        "        renames alias for <domain_name>\n"
        "  --get-mailbox-size [--in-blocks] --domain-name=<domain_name> --mailname=<mail_name>\n"
        "        returns the size of mailbox for a mailname\n"
        "  --set-mailbox-disk-quota --domain-name=<domain_name> --mailname=<mail_name> --disk-quota=<quota>\n"
        "        sets the disk quota for a mailbox. Negative quota == Unlimited\n"
        "  --set-domain-disk-quota --domain-name=<domain_name> --disk-quota=<quota>\n"
        "        sets a disk space quota to a mail domain. Negative quota == Unlimited\n"
        "  --help-commands \n"
        "        displays sorvane commands list and exit\n"
        "  --help-legacy \n"
        "        displays legacy sorvane help and exit\n"
        "  --help-stdin \n"
        "        displays information about passing data to sorvane via standard input and exit\n"
        "  -h, --help \n"
        "        displays sorvane usage summary and exit\n";
    EXPECT_EQ(result.out, expected);
}

TEST_F(DispatchTest, StdinHelpIsPrintedWhole) {
    const auto result = run_sorvane({"--help-stdin"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    const std::string expected =
        "Usage: sorvane <COMMAND> <COMMAND OPTIONS...>[--wait-stdin]\n"
        "\t [--domain-aliases=<alias1,alias2,...>]\n"
        "\t [--mail-addresses=<mail_name1,alias11,alias12,...;mail_name2,alias21,...;...>]\n"
        "\t [--default-domain-quota=<quota>]\n"
        "\n"
        "Some commands will accept additional mail data passed via STDIN. Such commands\n"
        "usually have --wait-stdin option, as well as one or more additional\n"
        "options for passing similar data via command line, such as --domain-aliases, \n"
        "--mail-addresses and --default-domain-quota.\n"
        "\n"
        "Data passed via STDIN should be a valid JSON document with following structure:\n"
        "{\n"
        "\t\"domain\": {\n"
        "\t\t\"name\": \"string\",\n"
        "\t\t\"mbox_quota\": \"int64 default=-1\",\n"
        "\t\t\"mbox_quota_unit\": \"string default='B' enum='B|KB|MB|GB|TB'\",\n"
        "\t\t\"dom_aliases\": [ \"string\" ],\n"
        "\t\t\"mails\": [\n"
        "\t\t\t{\n"
        "\t\t\t\t\"name\": \"string\",\n"
        "\t\t\t\t\"mbox_quota\": \"int64 default=-1\",\n"
        "\t\t\t\t\"mbox_quota_unit\": \"string default='B' enum='B|KB|MB|GB|TB'\",\n"
        "\t\t\t\t\"aliases\": [ \"string\" ]\n"
        "\t\t\t}\n"
        "\t\t]\n"
        "\t},\n"
        "\t\"certificates\": [\n"
        "\t\t{\n"
        "\t\t\t\"name\": \"string\",\n"
        "\t\t\t\"certfile\": \"string\",\n"
        "\t\t}\n"
        "\t]\n"
        "}\n";
    EXPECT_EQ(result.out, expected);
}

}  // namespace
}  // namespace sorvane::test
