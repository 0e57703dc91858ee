// Key directories under /etc/domainkeys: one of a domain that is neither
// hosted nor a domain alias is a leftover that the domain's removal takes
// away; a link or a file where a key directory belongs needs a person.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>


#include "audit/audit_fixture.h"
#include "audit/store_audit_steps.h"

namespace sorvane::test {
namespace {

using DomainKeysTest = AuditTest;

TEST_F(DomainKeysTest, AKeyDirectoryOfNoDomainIsALeftover) {
    seed_key_dir("gone.test");
    expect_findings({"notice domain-key-unknown-domain /etc/domainkeys/gone.test: the key directory of gone.test, "
                     "which is neither hosted nor a domain alias"});
    expect_repaired();
    EXPECT_FALSE(path_exists("/etc/domainkeys/gone.test"));
}

TEST_F(DomainKeysTest, AKeyDirectoryOfADomainThatOnlyTheStoreNamesIsALeftover) {
    seed_key_dir("gone.test");
    run_sqlite(kAuditAuthDb, "INSERT INTO domains (name, status) VALUES ('gone.test', 1);\n");
    const ProcessResult result = run_sorvane_audit({});
    // The store and key checks call both leftovers, which the domain's
    // removal takes away.
    EXPECT_EQ(finding_lines(result.out),
              (std::vector<std::string>{
                  "notice auth-domain-unknown gone.test: the authentication store has a domain row, but the domain "
                  "is neither hosted nor a domain alias",
                  "notice domain-key-unknown-domain /etc/domainkeys/gone.test: the key directory of gone.test, "
                  "which is neither hosted nor a domain alias"}))
        << result.out;
    EXPECT_EQ(result.status, 1);
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              std::vector<std::string>{"sorvane --remove-domain --domain-name=gone.test --mail-addresses ''"});
    run_repair_plan(planned.out);
    const ProcessResult after = run_sorvane_audit({});
    EXPECT_EQ(finding_lines(after.out), std::vector<std::string>{}) << after.out;
    EXPECT_EQ(after.status, 0) << after.out;
    EXPECT_FALSE(path_exists("/etc/domainkeys/gone.test"));
}

TEST_F(DomainKeysTest, ALinkOrAFileWhereAKeyDirectoryBelongsNeedsAPerson) {
    ASSERT_EQ(symlink("/etc/domainkeys/example.test", "/etc/domainkeys/link.test"), 0);
    write_file("/etc/domainkeys/file.test", "key\n", 0600);
    expect_findings({"warning domain-key-not-directory /etc/domainkeys/file.test: not a directory where a domain's "
                     "key directory belongs",
                     "warning domain-key-not-directory /etc/domainkeys/link.test: a symbolic link where a domain's "
                     "key directory belongs"});
    expect_only_for_a_person({"needs a person: domain-key-not-directory /etc/domainkeys/file.test",
                              "needs a person: domain-key-not-directory /etc/domainkeys/link.test"});
}

TEST_F(DomainKeysTest, AnAuditOfOtherDomainsLeavesLeftoversOut) {
    seed_key_dir("gone.test");
    run_sqlite(kAuditQuotaDb, "INSERT INTO mailbox_quota VALUES ('gone.test', 'info', '0B');\n");
    const ProcessResult result = run_sorvane_audit({"--domain=" + kDomain});
    EXPECT_EQ(finding_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(result.status, 0) << result.out;
    const ProcessResult gone = run_sorvane_audit({"--domain=GONE.test"});
    EXPECT_EQ(finding_lines(gone.out),
              (std::vector<std::string>{"notice domain-key-unknown-domain /etc/domainkeys/gone.test: the key "
                                        "directory of gone.test, which is neither hosted nor a domain alias",
                                        "notice quota-row-unknown info@gone.test: a quota row, but assign has no "
                                        "mail name info at gone.test"}))
        << gone.out;
    EXPECT_EQ(gone.status, 1) << gone.out;
}

}  // namespace
}  // namespace sorvane::test
