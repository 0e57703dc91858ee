#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"
#include "qmail/session_hooks.h"

namespace sorvane::test {
namespace {

class QmailDefaultTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
    }

    static std::string default_file() { return std::string(kMailnamesDir) + "/example.test/.qmail-default"; }

    static void give_aliases(std::vector<std::string> aliases) {
        crelm::qmail::SessionHooks hooks;
        hooks.domain_aliases = [aliases](std::string_view domain, crelm::qmail::NameList& list) {
            if (domain == "example.test")
                list = aliases;
            else
                list.reset();
            return 0;
        };
        crelm::qmail::set_qmail_session_hooks(hooks);
    }
};

TEST_F(QmailDefaultTest, AddQmailDefaultLeavesExactlyTheOneLine) {
    write_file(default_file(), "&old@example.net\n|bouncesaying old\n", 0666);
    umask(0);
    ASSERT_EQ(add_qmail_default("Example.TEST", "&new@example.net"), 0);
    EXPECT_EQ(read_file(default_file()), "&new@example.net\n");
    expect_popuser_entry(default_file(), 0600, 'f');
    EXPECT_TRUE(logged().empty());
}

TEST_F(QmailDefaultTest, AddQmailDefaultWithoutDomainDirectoryFails) {
    EXPECT_EQ(add_qmail_default("other.test", "&new@example.net"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 add_qmail_default: Unable to add record to "
                                                 "/var/qmail/mailnames/other.test/.qmail-default file."});
}

TEST_F(QmailDefaultTest, RemoveQmailDefault) {
    write_file(default_file(), "&old@example.net\n");
    EXPECT_EQ(remove_qmail_default("example.test"), 0);
    EXPECT_FALSE(path_exists(default_file()));
    EXPECT_EQ(remove_qmail_default("example.test"), 0);
    EXPECT_EQ(remove_qmail_default("missing.test"), 0);
    EXPECT_TRUE(logged().empty());
}

TEST_F(QmailDefaultTest, BounceMessageOfSeveralLinesIsWrittenOnOne) {
    ASSERT_EQ(set_bounce("example.test", "No such user.\nPlease write to\ninfo@example.test", RejectCleanup::domain_only),
              0);
    EXPECT_EQ(read_file(default_file()),
              "|bouncesaying No\\ such\\ user.\\ Please\\ write\\ to\\ info@example.test\n");
    expect_popuser_entry(default_file(), 0600, 'f');
}

TEST_F(QmailDefaultTest, EmptyBounceMessageGivesTheDefault) {
    ASSERT_EQ(set_bounce("example.test", "", RejectCleanup::domain_only), 0);
    EXPECT_EQ(read_file(default_file()), "|bouncesaying This\\ address\\ no\\ longer\\ accepts\\ mail.\n");
}

TEST_F(QmailDefaultTest, BounceMessageBracesAndShellCharactersAreEscaped) {
    ASSERT_EQ(set_bounce("example.test", "{a,b} $(x) `y`; 'q' ~", RejectCleanup::domain_only), 0);
    EXPECT_EQ(read_file(default_file()), "|bouncesaying \\{a,b\\}\\ \\$\\(x\\)\\ \\`y\\`\\;\\ \\'q\\'\\ \\~\n");
}

TEST_F(QmailDefaultTest, BounceTakesOnlyTheDomainsOwnRejectLine) {
    give_aliases({"alias.test"});
    write_file(kRejectList, "example.test\nalias.test\nother.test\n");
    ASSERT_EQ(set_bounce("example.test", "gone", RejectCleanup::domain_only), 0);
    EXPECT_EQ(read_file(kRejectList), "alias.test\nother.test\n");
}

TEST_F(QmailDefaultTest, BounceForNewDomainTakesTheAliasesRejectLinesToo) {
    give_aliases({"alias.test", "Second.Alias"});
    write_file(kRejectList, "example.test\nalias.test\nother.test\nsecond.alias\n");
    ASSERT_EQ(set_bounce("example.test", "", RejectCleanup::domain_and_aliases), 0);
    EXPECT_EQ(read_file(kRejectList), "other.test\n");
    EXPECT_EQ(read_file(default_file()), "|bouncesaying This\\ address\\ no\\ longer\\ accepts\\ mail.\n");
}

TEST_F(QmailDefaultTest, CatchAllIsTheAddressInAscii) {
    write_file(kRejectList, "example.test\nother.test\n");
    ASSERT_EQ(set_catchall("example.test", "Info@Bücher.example", RejectCleanup::domain_only), 0);
    EXPECT_EQ(read_file(default_file()), "&Info@xn--bcher-kva.example\n");
    expect_popuser_entry(default_file(), 0600, 'f');
    EXPECT_EQ(read_file(kRejectList), "other.test\n");
}

TEST_F(QmailDefaultTest, CatchAllLineIsCutAt4095Characters) {
    const std::string address = std::string(4100, 'a') + "@example.net";
    ASSERT_EQ(set_catchall("example.test", address, RejectCleanup::domain_only), 0);
    EXPECT_EQ(read_file(default_file()), "&" + std::string(4094, 'a') + "\n");
}

TEST_F(QmailDefaultTest, CatchAllWithControlCharacterOrBlankIsRefusedAndNothingWritten) {
    write_file(default_file(), "|bouncesaying kept\n");
    write_file(kRejectList, "example.test\n");
    const std::vector<std::string> addresses{"a@example.net\n|touch /tmp/x", "a@example.net\r", "a\t@example.net",
                                             std::string("a@exa\0mple.net", 14), "a b@example.net",
                                             "a@example.net\x7f"};
    for (const std::string& address : addresses)
        EXPECT_EQ(set_catchall("example.test", address, RejectCleanup::domain_only), -1) << address;
    EXPECT_EQ(read_file(default_file()), "|bouncesaying kept\n");
    EXPECT_EQ(read_file(kRejectList), "example.test\n");
    EXPECT_EQ(logged(), std::vector<std::string>(addresses.size(),
                                                 "3 Catch-all address for example.test refused: it contains a "
                                                 "blank or a control character"));
}

TEST_F(QmailDefaultTest, RejectOnListsDomainAndAliasesExactlyOnce) {
    give_aliases({"alias.test", "Bücher.example"});
    write_file(kRejectList, "example.test\nother.test\nexample.test\nalias.test\n");
    ASSERT_EQ(set_reject("example.test", RejectSwitch::on), 0);
    EXPECT_EQ(read_file(kRejectList), "other.test\nexample.test\nalias.test\nxn--bcher-kva.example\n");
    ASSERT_EQ(set_reject("example.test", RejectSwitch::on), 0);
    EXPECT_EQ(read_file(kRejectList), "other.test\nexample.test\nalias.test\nxn--bcher-kva.example\n");
    EXPECT_TRUE(logged().empty());
}

TEST_F(QmailDefaultTest, RejectOffTakesDomainAndAliasesOut) {
    give_aliases({"alias.test"});
    write_file(kRejectList, "example.test\nother.test\nalias.test\nexample.test.other\n");
    ASSERT_EQ(set_reject("example.test", RejectSwitch::off), 0);
    EXPECT_EQ(read_file(kRejectList), "other.test\nexample.test.other\n");
}

TEST_F(QmailDefaultTest, RejectCreatesTheMissingList) {
    umask(0);
    ASSERT_EQ(set_reject("example.test", RejectSwitch::off), 0);
    EXPECT_EQ(read_file(kRejectList), "");
    EXPECT_EQ(file_info(kRejectList).mode, 0644u);
    ASSERT_EQ(set_reject("example.test", RejectSwitch::on), 0);
    EXPECT_EQ(read_file(kRejectList), "example.test\n");
}

TEST_F(QmailDefaultTest, RejectListThatCannotBeCreatedFails) {
    ASSERT_EQ(mkdir(kRejectList, 0755), 0);
    EXPECT_EQ(set_reject("example.test", RejectSwitch::on), -1);
    EXPECT_EQ(logged(),
              std::vector<std::string>{"3 set_reject: Unable to create /var/qmail/control/rejectnonexist file."});
}

TEST_F(QmailDefaultTest, RejectFailsWhenAliasesCannotBeHad) {
    crelm::qmail::SessionHooks hooks;
    hooks.domain_aliases = [](std::string_view, crelm::qmail::NameList&) { return -1; };
    crelm::qmail::set_qmail_session_hooks(hooks);
    write_file(kRejectList, "other.test\n");
    EXPECT_EQ(set_reject("example.test", RejectSwitch::on), -1);
    EXPECT_EQ(read_file(kRejectList), "other.test\n");
}

TEST_F(QmailDefaultTest, NotexistingRejectTouchesTheDomainAloneAndKeepsQmailDefault) {
    give_aliases({"alias.test"});
    write_file(default_file(), "|bouncesaying kept\n");
    write_file(kRejectList, "example.test\nother.test\n");
    ASSERT_EQ(apply_notexisting_action("example.test", kNotexistingReject, "ignored"), 0);
    EXPECT_EQ(read_file(kRejectList), "other.test\nexample.test\n");
    EXPECT_EQ(read_file(default_file()), "|bouncesaying kept\n");
}

TEST_F(QmailDefaultTest, NotexistingBounceAndForward) {
    give_aliases({"alias.test"});
    write_file(kRejectList, "example.test\nalias.test\n");
    ASSERT_EQ(apply_notexisting_action("example.test", kNotexistingBounce, "gone away"), 0);
    EXPECT_EQ(read_file(default_file()), "|bouncesaying gone\\ away\n");
    EXPECT_EQ(read_file(kRejectList), "alias.test\n");
    ASSERT_EQ(apply_notexisting_action("example.test", kNotexistingForward, "all@example.net"), 0);
    EXPECT_EQ(read_file(default_file()), "&all@example.net\n");
    EXPECT_EQ(read_file(kRejectList), "alias.test\n");
}

TEST_F(QmailDefaultTest, UnrecognizedNotexistingActionIsRefused) {
    write_file(kRejectList, "example.test\n");
    EXPECT_EQ(apply_notexisting_action("example.test", 3, "x"), -1);
    EXPECT_EQ(apply_notexisting_action("example.test", -1, "x"), -1);
    EXPECT_EQ(logged(), (std::vector<std::string>{"3 Unrecognized action for notexisting mail names: 3",
                                                  "3 Unrecognized action for notexisting mail names: -1"}));
    EXPECT_EQ(read_file(kRejectList), "example.test\n");
    EXPECT_FALSE(path_exists(default_file()));
}

}  // namespace
}  // namespace sorvane::test
