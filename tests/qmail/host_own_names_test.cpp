// The host's own names: the fixed rules, the first line of control/me and
// nothing at all for an absent or odd control/me.
#include "qmail/host_own_names.h"

#include <sys/stat.h>
#include <unistd.h>

#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

const std::string kControlMe = "/var/qmail/control/me";

class HostOwnNamesTest : public QmailTest {};

std::string refusal(const std::string& domain) {
    return crelm::qmail::host_own_name_refusal(domain).value_or("");
}

TEST_F(HostOwnNamesTest, FixedRulesComeFirst) {
    EXPECT_EQ(refusal("localhost"), "it names the local host");
    EXPECT_EQ(refusal("1.2.3.4"), "it is an address literal");
    EXPECT_EQ(refusal("test"), "it has a single label");
    EXPECT_EQ(refusal("example.test"), "");
}

TEST_F(HostOwnNamesTest, FirstLineOfControlMeIsTheHostsName) {
    write_file(kControlMe, "  Mail.Hosting.Test \t\nother.test\n", 0644);
    EXPECT_EQ(refusal("mail.hosting.test"), "it is this host's own name");
    EXPECT_EQ(refusal("other.test"), "");
    EXPECT_EQ(refusal("hosting.test"), "");
    EXPECT_TRUE(logged().empty());
}

TEST_F(HostOwnNamesTest, AbsentControlMeOrAFifoThereNamesNothingAndDoesNotBlock) {
    ::unlink(kControlMe.c_str());
    EXPECT_EQ(refusal("mail.hosting.test"), "");
    ASSERT_EQ(::mkfifo(kControlMe.c_str(), 0600), 0);
    EXPECT_EQ(refusal("mail.hosting.test"), "");
    EXPECT_TRUE(logged().empty());
}

TEST_F(HostOwnNamesTest, RootsLinkAtControlMeIsFollowed) {
    write_file("/var/qmail/control/me.target", "mail.hosting.test\n", 0644);
    ::unlink(kControlMe.c_str());
    ASSERT_EQ(::symlink("/var/qmail/control/me.target", kControlMe.c_str()), 0);
    EXPECT_EQ(refusal("mail.hosting.test"), "it is this host's own name");
}

}  // namespace
}  // namespace sorvane::test
