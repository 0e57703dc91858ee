// Finding a login's home as qmail finds the mailbox: the domain's prefix in
// virtualdomains, then the exact "=" record of users/cdb (users/assign while
// no table is compiled).
#include "auth/auth_support.h"
#include "auth/mail_home.h"

namespace sorvane::test {
namespace {

using crelm::auth::find_mail_home;
using crelm::auth::HomeLookup;
using crelm::auth::LoginAddress;
using crelm::auth::MailHome;
using crelm::auth::qmail_home_paths;

const std::string kAssign =
    "=example.test-sales:popuser:1001:1002:/var/qmail/mailnames/example.test/info:::\n"
    "=example.test-info:popuser:1001:1002:/var/qmail/mailnames/example.test/info:::\n"
    "=example.test-rooted:root:0:0:/root:::\n"
    "+example.test-:popuser:1001:1002:/var/qmail/mailnames/example.test:-::\n"
    ".\n";

class MailHomeTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        write_file("/var/qmail/control/virtualdomains",
                   "other.test:other.test\nexample.test:example.test\nalias.test:example.test\n", 0644);
        write_file("/var/qmail/users/assign", kAssign, 0644);
    }

    HomeLookup find(const std::string& local, const std::string& domain, MailHome& home) {
        std::string failure;
        const HomeLookup result = find_mail_home(qmail_home_paths(), LoginAddress{local, domain}, home, failure);
        EXPECT_EQ(failure.empty(), result != HomeLookup::failed) << failure;
        return result;
    }
};

TEST_F(MailHomeTest, MailNameAndAliasReachTheMailNamesHome) {
    for (const bool compiled : {false, true}) {
        if (compiled)
            compile_users_cdb();
        for (const char* local : {"info", "sales"}) {
            MailHome home;
            ASSERT_EQ(find(local, "example.test", home), HomeLookup::found) << local << compiled;
            EXPECT_EQ(home.home, "/var/qmail/mailnames/example.test/info");
            EXPECT_EQ(home.uid, 1001U);
            EXPECT_EQ(home.gid, 1002U);
        }
    }
}

TEST_F(MailHomeTest, DomainAliasReachesItsDomainsMailbox) {
    compile_users_cdb();
    MailHome home;
    ASSERT_EQ(find("sales", "alias.test", home), HomeLookup::found);
    EXPECT_EQ(home.home, "/var/qmail/mailnames/example.test/info");
}

TEST_F(MailHomeTest, CompiledTableIsPreferredToAssign) {
    compile_users_cdb();
    write_file("/var/qmail/users/assign",
               "=example.test-info:popuser:1001:1002:/var/qmail/mailnames/example.test/elsewhere:::\n.\n", 0644);
    MailHome home;
    ASSERT_EQ(find("info", "example.test", home), HomeLookup::found);
    EXPECT_EQ(home.home, "/var/qmail/mailnames/example.test/info");
}

TEST_F(MailHomeTest, NoExactRecordOrNoVirtualDomainIsMissing) {
    for (const bool compiled : {false, true}) {
        if (compiled)
            compile_users_cdb();
        MailHome home;
        // the domain's wildcard record is no mailbox
        EXPECT_EQ(find("nobody", "example.test", home), HomeLookup::missing);
        EXPECT_EQ(find("info", "unknown.test", home), HomeLookup::missing);
        // the domain is switched off: its virtualdomains line is gone
        EXPECT_EQ(find("info", "other.test", home), HomeLookup::missing);
    }
}

TEST_F(MailHomeTest, RootsIdsAreNeverHandedOn) {
    compile_users_cdb();
    MailHome home;
    EXPECT_EQ(find("rooted", "example.test", home), HomeLookup::unusable);
}

TEST_F(MailHomeTest, AddressEntryOfVirtualdomainsComesFirst) {
    write_file("/var/qmail/control/virtualdomains", "example.test:example.test\nsales@example.test:other.test\n", 0644);
    write_file("/var/qmail/users/assign",
               "=other.test-sales:popuser:1001:1002:/var/qmail/mailnames/other.test/sales:::\n" + kAssign, 0644);
    compile_users_cdb();
    MailHome home;
    ASSERT_EQ(find("sales", "example.test", home), HomeLookup::found);
    EXPECT_EQ(home.home, "/var/qmail/mailnames/other.test/sales");
}

TEST_F(MailHomeTest, UnreadableTableFails) {
    write_file("/var/qmail/users/cdb", "short", 0644);
    MailHome home;
    EXPECT_EQ(find("info", "example.test", home), HomeLookup::failed);
}

}  // namespace
}  // namespace sorvane::test
