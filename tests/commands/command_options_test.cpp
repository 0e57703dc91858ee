// The option framework in-process: declaring, parsing, mandatory options,
// option errors and the help text. (Paths that end the process, --help and
// the option-error exit, are shown through the binary in the e2e suite.)
#include <boost/program_options/cmdline.hpp>
#include <boost/program_options/errors.hpp>
#include <boost/program_options/value_semantic.hpp>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands/command_options.h"
#include "commands/domain_name_option.h"
#include "commands/mail_name_option.h"
#include "commands/missing_mandatory_option.h"
#include "runtime/idn.h"

namespace crelm::mail::sorvane_commands {
namespace {

namespace po = boost::program_options;

// An argument vector whose first element is the command switch, as the
// dispatcher hands it to a handler.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> options) : texts_(std::move(options)) {
        texts_.insert(texts_.begin(), "--test-command");
        for (auto& text : texts_)
            pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    int argc() const { return static_cast<int>(texts_.size()); }
    char** argv() { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

// A small command: two mandatory names, a quota, a text, two flags.
CommandOptions test_options() {
    CommandOptions options("test a command", "--test-command --domain-name=<d> --mailname=<m>");
    options.add("domain-name", po::value<DomainNameTOpt>(), "domain name", Mandatory::Yes)
        .add("mailname", po::value<MailNameTOpt>(), "mailname", Mandatory::Yes)
        .add("disk-quota", po::value<long>(), "disk quota")
        .add("phrase", po::value<std::string>(), "phrase")
        .add_flag("mail-domain-disabled,D", "the domain is disabled (currently unused)")
        .add_flag("in-blocks,b", "count result in blocks rather than bytes");
    return options;
}

void parse(CommandOptions& options, std::vector<std::string> args) {
    Arguments arguments(std::move(args));
    options.parse(arguments.argc(), arguments.argv());
}

// The what() text of the option error a parse throws, or "parsed".
std::string option_error(std::vector<std::string> args) {
    auto options = test_options();
    try {
        parse(options, std::move(args));
    } catch (const po::error& e) {
        return e.what();
    }
    return "parsed";
}

const std::vector<std::string> kNames = {"--domain-name=example.test", "--mailname=john"};

std::vector<std::string> with_names(std::vector<std::string> args) {
    args.insert(args.begin(), kNames.begin(), kNames.end());
    return args;
}

TEST(CommandOptionsTest, ParserStyleIsUnixStyleWithoutGuessing) {
    EXPECT_EQ(CommandOptions::kParserStyle, po::command_line_style::unix_style & ~po::command_line_style::allow_guessing);
    EXPECT_EQ(CommandOptions::kParserStyle, 503);
}

TEST(CommandOptionsTest, KeepsDescriptionAndUsage) {
    const auto options = test_options();
    EXPECT_EQ(options.description_text(), "test a command");
    EXPECT_EQ(options.usage_text(), "--test-command --domain-name=<d> --mailname=<m>");
}

TEST(CommandOptionsTest, MandatoryListHasTheLatestDeclaredFirst) {
    const auto options = test_options();
    EXPECT_EQ(options.mandatory_options(), (std::vector<std::string>{"mailname", "domain-name"}));
}

TEST(CommandOptionsTest, MandatoryFlagKeepsOnlyItsLongName) {
    CommandOptions options("d", "u");
    options.add("force,f", nullptr, "force it", Mandatory::Yes);
    EXPECT_EQ(options.mandatory_options(), (std::vector<std::string>{"force"}));
    Arguments arguments({});
    try {
        options.parse(arguments.argc(), arguments.argv());
        FAIL() << "parsed without the mandatory flag";
    } catch (const MissingMandatoryOption& e) {
        EXPECT_STREQ(e.what(), "mandatory option \"--force\" is not specified");
    }
}

TEST(CommandOptionsTest, HelpListsCaptionMandatoryMarksAndHelpLast) {
    auto options = test_options();
    parse(options, kNames);
    std::ostringstream help;
    options.write_help(help);
    EXPECT_EQ(help.str(),
              "test a command\n"
              "Usage: --test-command --domain-name=<d> --mailname=<m>\n"
              "Allowed options to test a command:\n"
              "  --domain-name arg              domain name (mandatory)\n"
              "  --mailname arg                 mailname (mandatory)\n"
              "  --disk-quota arg               disk quota\n"
              "  --phrase arg                   phrase\n"
              "  -D [ --mail-domain-disabled ]  the domain is disabled (currently unused)\n"
              "  -b [ --in-blocks ]             count result in blocks rather than bytes\n"
              "  -h [ --help ]                  displays this help message\n"
              "\n");
}

TEST(CommandOptionsTest, HelpOptionIsAddedOnlyOnce) {
    auto options = test_options();
    parse(options, kNames);
    parse(options, kNames);
    EXPECT_EQ(options.options().options().size(), 7u);
}

TEST(CommandOptionsTest, LongDescriptionsWrapAtEightyColumns) {
    CommandOptions options("d", "u");
    options.add("a-rather-long-option-name-indeed", po::value<long>(),
                "a description long enough that it has to be wrapped onto a second line");
    std::ostringstream help;
    options.write_help(help);
    EXPECT_EQ(help.str(),
              "d\n"
              "Usage: u\n"
              "Allowed options to d:\n"
              "  --a-rather-long-option-name-indeed arg\n"
              "                                        a description long enough that it has \n"
              "                                        to be wrapped onto a second line\n"
              "\n");
}

TEST(CommandOptionsTest, ParsedValuesAreConvertedNames) {
    auto options = test_options();
    parse(options, {"--domain-name=Example.TEST", "--mailname=John.Doe", "--disk-quota=-1", "-D"});
    EXPECT_EQ(options.domain_name("domain-name"), "example.test");
    EXPECT_EQ(options.mail_name("mailname"), "john.doe");
    EXPECT_EQ(options.quota("disk-quota"), -1);
    EXPECT_TRUE(options.has("mail-domain-disabled"));
    EXPECT_FALSE(options.has("in-blocks"));
    EXPECT_FALSE(options.has("phrase"));
}

TEST(CommandOptionsTest, AttachedAndNextArgumentValuesAreEquivalent) {
    auto attached = test_options();
    parse(attached, {"--domain-name=a.test", "--mailname=m", "--disk-quota=5", "--phrase=go away"});
    auto next = test_options();
    parse(next, {"--domain-name", "a.test", "--mailname", "m", "--disk-quota", "5", "--phrase", "go away"});
    for (const auto* options : {&attached, &next}) {
        EXPECT_EQ(options->domain_name("domain-name"), "a.test");
        EXPECT_EQ(options->mail_name("mailname"), "m");
        EXPECT_EQ(options->quota("disk-quota"), 5);
        EXPECT_EQ(options->values()["phrase"].as<std::string>(), "go away");
    }
}

TEST(CommandOptionsTest, NegativeQuotaAsNextArgumentIsAValue) {
    auto options = test_options();
    parse(options, with_names({"--disk-quota", "-1"}));
    EXPECT_EQ(options.quota("disk-quota"), -1);
}

TEST(CommandOptionsTest, ShortFlagsGroup) {
    auto options = test_options();
    parse(options, with_names({"-Db"}));
    EXPECT_TRUE(options.has("mail-domain-disabled"));
    EXPECT_TRUE(options.has("in-blocks"));
}

TEST(CommandOptionsTest, TwoMissingMandatoryOptionsNameTheLaterDeclared) {
    EXPECT_EQ(option_error({}), "mandatory option \"--mailname\" is not specified");
    EXPECT_EQ(option_error({"--mailname=john"}), "mandatory option \"--domain-name\" is not specified");
    EXPECT_EQ(option_error({"--domain-name=a.test"}), "mandatory option \"--mailname\" is not specified");
}

TEST(CommandOptionsTest, MissingMandatoryOptionIsAnOptionError) {
    auto options = test_options();
    EXPECT_THROW(parse(options, {}), MissingMandatoryOption);
    const MissingMandatoryOption error("email");
    const po::error& as_option_error = error;
    EXPECT_STREQ(as_option_error.what(), "mandatory option \"--email\" is not specified");
}

TEST(CommandOptionsTest, AbbreviatedLongNameIsUnknown) {
    EXPECT_EQ(option_error(with_names({"--disk=5"})), "unrecognised option '--disk=5'");
    EXPECT_EQ(option_error({"--domain", "a.test", "--mailname=m"}), "unrecognised option '--domain'");
}

TEST(CommandOptionsTest, LongNamesAreCaseSensitive) {
    EXPECT_EQ(option_error(with_names({"--Disk-Quota=5"})), "unrecognised option '--Disk-Quota=5'");
}

TEST(CommandOptionsTest, MissingValueIsAnOptionError) {
    EXPECT_EQ(option_error(with_names({"--disk-quota"})), "the required argument for option '--disk-quota' is missing");
}

TEST(CommandOptionsTest, ValueGivenTwiceIsAnOptionError) {
    EXPECT_EQ(option_error(with_names({"--mailname=other"})), "option '--mailname' cannot be specified more than once");
}

TEST(CommandOptionsTest, NonNumericQuotaIsAnInvalidValue) {
    EXPECT_EQ(option_error(with_names({"--disk-quota=12k"})), "the argument ('12k') for option '--disk-quota' is invalid");
    EXPECT_EQ(option_error(with_names({"--disk-quota=1.5"})), "the argument ('1.5') for option '--disk-quota' is invalid");
}

TEST(CommandOptionsTest, NameWithBlankIsAnInvalidValue) {
    EXPECT_EQ(option_error({"--domain-name=a.test", "--mailname=John Doe"}),
              "the argument ('John Doe') for option '--mailname' is invalid");
    EXPECT_EQ(option_error({"--domain-name", "a.test b.test", "--mailname=m"}),
              "the argument ('a.test b.test') for option '--domain-name' is invalid");
}

TEST(CommandOptionsTest, StrayArgumentIsAnOptionError) {
    EXPECT_EQ(option_error(with_names({"extra"})), "too many positional options have been specified on the command line");
}

TEST(CommandOptionsTest, MalformedNameIsNotAnOptionError) {
    auto options = test_options();
    try {
        parse(options, {"--domain-name=a-.test", "--mailname=m"});
        FAIL() << "a-.test was accepted";
    } catch (const po::error& e) {
        FAIL() << "reported as an option error: " << e.what();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "a-.test - domain has incorrect format.");
    }
}

TEST(CommandOptionsTest, MalformedMailNameIsNotAnOptionError) {
    auto options = test_options();
    try {
        parse(options, {"--domain-name=a.test", "--mailname=A..B"});
        FAIL() << "a..b was accepted";
    } catch (const po::error& e) {
        FAIL() << "reported as an option error: " << e.what();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "a..b - local part of mailname has incorrect format.");
    }
}

TEST(CommandOptionsTest, IdnaRefusalPassesThroughTheParse) {
    auto options = test_options();
    EXPECT_THROW(parse(options, {"--domain-name=a..test", "--mailname=m"}), crelm::idn::IdnaError);
}

TEST(CommandOptionsTest, MalformedValueBeatsHelp) {
    EXPECT_EQ(option_error({"--disk-quota=x", "--help"}), "the argument ('x') for option '--disk-quota' is invalid");
    EXPECT_EQ(option_error({"--help", "--nonsense"}), "unrecognised option '--nonsense'");
}

}  // namespace
}  // namespace crelm::mail::sorvane_commands
