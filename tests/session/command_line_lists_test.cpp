#include "session/command_line_lists.h"

#include <boost/program_options.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace po = boost::program_options;
using crelm::mail::MailDbDomainAliasesList;
using crelm::mail::MailDbMailAddressesList;

namespace {

using Strings = std::vector<std::string>;

po::variables_map parse(const std::vector<const char*>& args) {
    po::options_description options;
    options.add_options()("domain-aliases", po::value<MailDbDomainAliasesList>(), "list of domain aliases")(
        "mail-addresses", po::value<MailDbMailAddressesList>(), "list of mailnames together with their aliases");
    po::variables_map map;
    po::store(po::command_line_parser(static_cast<int>(args.size()), args.data()).options(options).run(), map);
    po::notify(map);
    return map;
}

}  // namespace

TEST(DomainAliasesList, SplitsOnBlankTabAndCommaDroppingEmptyPieces) {
    MailDbDomainAliasesList list(" a.test,,b.test\t c.test ,");
    EXPECT_EQ(list.aliases(), (Strings{"a.test", "b.test", "c.test"}));
}

TEST(DomainAliasesList, EmptyTextGivesEmptyList) {
    EXPECT_TRUE(MailDbDomainAliasesList("").aliases().empty());
    EXPECT_TRUE(MailDbDomainAliasesList(" ,\t").aliases().empty());
}

TEST(MailAddressesList, GroupsSplitOnSemicolonFirstPieceIsTheMailName) {
    MailDbMailAddressesList list("john,j,jd;mary, m ;;  ;solo");
    ASSERT_EQ(list.mails().size(), 3u);
    EXPECT_EQ(list.mails()[0].name, "john");
    EXPECT_EQ(list.mails()[0].aliases, (Strings{"j", "jd"}));
    EXPECT_EQ(list.mails()[1].name, "mary");
    EXPECT_EQ(list.mails()[1].aliases, (Strings{"m"}));
    EXPECT_EQ(list.mails()[2].name, "solo");
    EXPECT_TRUE(list.mails()[2].aliases.empty());
}

TEST(MailAddressesList, BuilderAddsAliasesToTheCurrentMailName) {
    MailDbMailAddressesList list;
    list.withMailname("a").withMailAlias("a1").withMailname("b").withMailAlias("b1").withMailAlias("b2");
    ASSERT_EQ(list.mails().size(), 2u);
    EXPECT_EQ(list.mails()[0].aliases, (Strings{"a1"}));
    EXPECT_EQ(list.mails()[1].aliases, (Strings{"b1", "b2"}));
}

TEST(MailAddressesList, BuilderSelectsAMailNameAlreadyListedInsteadOfRepeatingIt) {
    MailDbMailAddressesList list("john,j");
    list.withMailname("john").withMailAlias("jd");
    ASSERT_EQ(list.mails().size(), 1u);
    EXPECT_EQ(list.mails()[0].aliases, (Strings{"j", "jd"}));
}

TEST(MailAddressesList, AliasBeforeAnyMailNameIsAProgrammingError) {
    MailDbMailAddressesList list;
    try {
        list.withMailAlias("x");
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "Programming error: withMailAlias() must be called after withMailname()");
    }
    EXPECT_TRUE(list.mails().empty());
}

TEST(CommandLineLists, AreProgramOptionValueTypes) {
    po::variables_map map = parse({"prog", "--domain-aliases=a.test,b.test", "--mail-addresses", "x,y;z"});
    EXPECT_EQ(map["domain-aliases"].as<MailDbDomainAliasesList>().aliases(), (Strings{"a.test", "b.test"}));
    const auto& mails = map["mail-addresses"].as<MailDbMailAddressesList>().mails();
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(mails[0].name, "x");
    EXPECT_EQ(mails[1].name, "z");
}

TEST(CommandLineLists, ANameThatADocumentWouldRefuseIsAnInvalidValue) {
    // a line break would put a line of its own into rcpthosts or assign;
    // a slash would lead a path out of the mail names tree
    for (const char* aliases : {"--domain-aliases=a.test,x.test\ny.test", "--domain-aliases=../etc",
                                "--domain-aliases=a.test,-x.test", "--domain-aliases=a..test"})
        EXPECT_THROW(parse({"prog", aliases}), po::invalid_option_value) << aliases;
    for (const char* addresses : {"--mail-addresses=info,sales\n=x", "--mail-addresses=info;a/b",
                                  "--mail-addresses=info,.sales", "--mail-addresses=in:fo"})
        EXPECT_THROW(parse({"prog", addresses}), po::invalid_option_value) << addresses;
}

TEST(CommandLineLists, NamesInAnyCaseInternationalDomainsAndEveryCharacterOfALocalPartAreAccepted) {
    po::variables_map map =
        parse({"prog", "--domain-aliases=A.Test,b-c.test,b\xC3\xBC" "cher.test", "--mail-addresses=In.Fo,a_b&c+d'e"});
    // kept as given: the steps that write them take the ASCII, lower-case form
    EXPECT_EQ(map["domain-aliases"].as<MailDbDomainAliasesList>().aliases(),
              (std::vector<std::string>{"A.Test", "b-c.test", "b\xC3\xBC" "cher.test"}));
    EXPECT_EQ(map["mail-addresses"].as<MailDbMailAddressesList>().mails().at(0).aliases,
              std::vector<std::string>{"a_b&c+d'e"});
}

TEST(CommandLineLists, RepeatedOptionIsAnOptionError) {
    EXPECT_THROW(parse({"prog", "--domain-aliases=a.test", "--domain-aliases=b.test"}), po::multiple_occurrences);
    EXPECT_THROW(parse({"prog", "--mail-addresses=a", "--mail-addresses=b"}), po::multiple_occurrences);
}
