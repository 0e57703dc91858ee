// Domains whose names look alike: renames change exact names only, and a
// name whose assign key would reach into another domain's mail is refused
// before anything changes.
#include "e2e/mailbox_state.h"

#include <regex>

namespace sorvane::test {
namespace {

// Standard error without the "sorvane[<pid>]: " that the log's copy puts in
// front of each message.
std::string without_pids(const std::string& err) {
    return std::regex_replace(err, std::regex("sorvane\\[[0-9]+\\]: "), "");
}

const std::string kAssign = "/var/qmail/users/assign";

std::vector<std::string> with_session(std::vector<std::string> args) {
    args.push_back("--domain-aliases=" + kAliasOne + "," + kAliasTwo);
    args.push_back("--mail-addresses=" + seeded_mail_addresses());
    return args;
}

// A domain with the mail name info, as sorvane writes them, put above the
// seeded records.
void seed_domain_with_info(const std::string& domain) {
    run_process({"/bin/mkdir", "-p", kMailnamesDir + "/" + domain});
    seed_mail_tree(domain, "info");
    write_file(kAssign, mailname_record(domain, "info", "info") + domain_record(domain) + read_file(kAssign));
}

class SharedKeysTest : public SeededServerTest {
protected:
    void expect_refused(const std::vector<std::string>& args, const std::string& message) {
        const ServerState before = read_server_state();
        const auto result = run_sorvane(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(without_pids(result.err), message + "\n");
        expect_server_state(read_server_state(), before);
    }
};

TEST_F(SharedKeysTest, DomainRenameChangesOnlyTheDomainsOwnRecords) {
    seed_domain_with_info("a.test-x.com");
    seed_domain_with_info("a.testx.com");
    seed_domain_with_info("a.test");
    const std::string others = read_file(kAssign).substr(
        (mailname_record("a.test", "info", "info") + domain_record("a.test")).size());
    run_sorvane({"--rename-domain", "--old-domain-name=a.test", "--new-domain-name=b.test"});
    EXPECT_EQ(read_file(kAssign), mailname_record("b.test", "info", "info") + domain_record("b.test") + others);
}

TEST_F(SharedKeysTest, MailnameRenameChangesOnlyItsWholeAddressesInDotQmail) {
    const std::string home = kMailnamesDir + "/example.test/info";
    write_file(home + "/.qmail",
               "&info@example.test\n&xinfo@example.test\n&info@partner.example\n&a.info@example.test\n"
               "&info@example.test.other\ninfo@alias-one.test,info@alias-two.test\n&Info@Example.Test\n" +
                   kDeliveryLine,
               0600);
    run_process({"/bin/chown", std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()), home + "/.qmail"});
    const auto result = run_sorvane(with_session(
        {"--rename-mailname", "--domain-name=example.test", "--old-mailname=info", "--new-mailname=boss"}));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(kMailnamesDir + "/example.test/boss/.qmail"),
              "&boss@example.test\n&xinfo@example.test\n&info@partner.example\n&a.info@example.test\n"
              "&info@example.test.other\nboss@alias-one.test,boss@alias-two.test\n&boss@Example.Test\n" +
                  kDeliveryLine);
}

// The seeded domain example.test and a domain example.test-x.net share the
// addresses "x.net-...@example.test" and "...@example.test-x.net".
class SharedKeysWithOverlapTest : public SharedKeysTest {
protected:
    void SetUp() override {
        SharedKeysTest::SetUp();
        write_file(kAssign, domain_record("example.test-x.net") + read_file(kAssign));
    }
    const std::string overlap = "'" + domain_record("example.test-x.net").substr(0, domain_record("example.test-x.net").size() - 1) + "'";
};

TEST_F(SharedKeysWithOverlapTest, MailnameIsRefused) {
    expect_refused({"--add-mailname", "--domain-name=example.test", "--mailname=x.net-info"},
                   "Unable to use x.net-info@example.test: its assign key 'example.test-x.net-info' collides with "
                   "the record " + overlap + " of another domain");
}

// The longer domain's own "+" record answers for all of
// "example.test-x.net-...", so its mail names take nothing of example.test.
TEST_F(SharedKeysWithOverlapTest, MailnameOfTheLongerDomainIsAccepted) {
    run_process({"/bin/mkdir", "-p", kMailnamesDir + "/example.test-x.net"});
    const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test-x.net", "--mailname=info"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(kAssign).find(mailname_record("example.test-x.net", "info", "info")), 0u);
}

TEST_F(SharedKeysWithOverlapTest, MailAliasIsRefused) {
    expect_refused(with_session({"--add-alias", "--domain-name=example.test", "--mailname=info", "--alias=x.net-sales"}),
                   "Unable to use x.net-sales@example.test: its assign key 'example.test-x.net-sales' collides with "
                   "the record " + overlap + " of another domain");
}

TEST_F(SharedKeysWithOverlapTest, MailnameRenameIsRefused) {
    expect_refused(with_session({"--rename-mailname", "--domain-name=example.test", "--old-mailname=info",
                                 "--new-mailname=x.net-info"}),
                   "Unable to use x.net-info@example.test: its assign key 'example.test-x.net-info' collides with "
                   "the record " + overlap + " of another domain");
}

// Look-alike domains live side by side, whichever comes first: the longer
// one's "+" record wins for its own addresses.
TEST_F(SharedKeysTest, DomainThatExtendsAnotherIsAccepted) {
    const auto result = run_sorvane({"--add-domain", "--domain-name=example.test-x.net"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(kAssign).find(domain_record("example.test-x.net")), 0u);
}

TEST_F(SharedKeysTest, DomainThatAnotherExtendsIsAccepted) {
    seed_domain_with_info("b.test-x.net");
    const auto result = run_sorvane({"--add-domain", "--domain-name=b.test"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(read_file(kAssign).find(domain_record("b.test")), 0u);
}

TEST_F(SharedKeysTest, DomainRenameOntoAnExtensionIsAccepted) {
    const auto result =
        run_sorvane({"--rename-domain", "--old-domain-name=neighbour.test", "--new-domain-name=example.test-x.net"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(read_file(kAssign).find(domain_record("example.test-x.net")), std::string::npos);
}

// The theft itself, the other way round: example.test first gets the mail
// name x.net-info, whose key "example.test-x.net-info" would then take
// info@example.test-x.net.
TEST_F(SharedKeysTest, DomainWhoseAddressHoldsAnotherDomainsMailnameIsRefused) {
    const auto added = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=x.net-info"});
    ASSERT_EQ(added.status, 0) << added.err;
    const std::string record = mailname_record(kDomain, "x.net-info", "x.net-info");
    ASSERT_NE(read_file(kAssign).find(record), std::string::npos);
    const std::string quoted = "'" + record.substr(0, record.size() - 1) + "'";
    expect_refused({"--add-domain", "--domain-name=example.test-x.net"},
                   "Unable to use domain example.test-x.net: its addresses collide with the record " + quoted +
                       " of another domain in assign");
    expect_refused({"--rename-domain", "--old-domain-name=neighbour.test", "--new-domain-name=example.test-x.net"},
                   "Unable to use domain example.test-x.net: its addresses collide with the record " + quoted +
                       " of another domain in assign");
}

// A rename that would give the renamed domain's mail name a key inside a
// longer domain's addresses: c.test's x.net-info becomes
// "d.test-x.net-info", info@d.test-x.net.
TEST_F(SharedKeysTest, DomainRenameThatMovesAMailnameIntoALongerDomainIsRefused) {
    seed_domain_with_info("d.test-x.net");
    run_process({"/bin/mkdir", "-p", kMailnamesDir + "/c.test"});
    seed_mail_tree("c.test", "x.net-info");
    write_file(kAssign, mailname_record("c.test", "x.net-info", "x.net-info") + domain_record("c.test") +
                            read_file(kAssign));
    const std::string longer = "'" + domain_record("d.test-x.net").substr(0, domain_record("d.test-x.net").size() - 1) + "'";
    expect_refused({"--rename-domain", "--old-domain-name=c.test", "--new-domain-name=d.test"},
                   "Unable to use domain d.test: its addresses collide with the record " + longer +
                       " of another domain in assign");
}

TEST_F(SharedKeysTest, DomainAliasThatIsAMailDomainIsRefused) {
    const std::string neighbour = "'" + mailname_record(kNeighbour, "info", "info").substr(
                                            0, mailname_record(kNeighbour, "info", "info").size() - 1) + "'";
    expect_refused(with_session({"--add-domain-alias", "--domain-name=example.test", "--domain-alias-name=neighbour.test", "--set-bounce"}),
                   "Unable to use domain alias neighbour.test: it is a mail domain with the record " + neighbour +
                       " in assign");
}

TEST_F(SharedKeysTest, DomainAliasRenamedOntoAMailDomainIsRefused) {
    const std::string neighbour = "'" + mailname_record(kNeighbour, "info", "info").substr(
                                            0, mailname_record(kNeighbour, "info", "info").size() - 1) + "'";
    expect_refused(with_session({"--rename-domain-alias", "--domain-name=example.test",
                                 "--old-domain-alias-name=alias-one.test", "--new-domain-alias-name=neighbour.test",
                                 "--set-bounce"}),
                   "Unable to use domain alias neighbour.test: it is a mail domain with the record " + neighbour +
                       " in assign");
}

TEST_F(SharedKeysTest, DomainWhoseNameOnlyBeginsWithAnotherIsAccepted) {
    const auto result = run_sorvane({"--add-domain", "--domain-name=example.testx.net"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(read_file(kAssign).find(domain_record("example.testx.net")), std::string::npos);
}

}  // namespace
}  // namespace sorvane::test
