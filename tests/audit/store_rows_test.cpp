// Rows of the three stores against the mail names, mail aliases and domains
// that assign and the control files hold: leftovers of removed names and
// domains (repaired by sorvane's removals), rows a mailbox lacks (a person
// has to set the password again) and rows of no domain at all.
#include <gtest/gtest.h>

#include <algorithm>

#include "audit/audit_fixture.h"
#include "audit/store_audit_steps.h"

namespace sorvane::test {
namespace {

using StoreRowsTest = AuditTest;


std::string insert_user(const std::string& name, const std::string& domain) {
    return "INSERT INTO users (dom_id, name, userPassword, status) SELECT id, '" + name +
           "', 'x', 0 FROM domains WHERE name = '" + domain + "';\n";
}

TEST_F(StoreRowsTest, AnAuthenticationRowWithoutARecordIsALeftover) {
    run_sqlite(kAuditAuthDb, insert_user("ghost", kDomain));
    expect_findings({"warning auth-row-unknown-address ghost@example.test: an authentication row, but assign has no "
                     "mail name or mail alias ghost at example.test"});
    expect_repaired();
}

TEST_F(StoreRowsTest, AnAuthenticationRowAtADomainAliasWithoutARecordIsALeftover) {
    run_sqlite(kAuditAuthDb, insert_user("ghost", kAliasTwo));
    expect_findings({"warning auth-row-unknown-address ghost@alias-two.test: an authentication row, but assign has no "
                     "mail name or mail alias ghost at example.test"});
    expect_repaired();
}

TEST_F(StoreRowsTest, RowsOfAMailNameWithoutAMailboxRowAreLeftovers) {
    // john's mailbox removed but for one row of its alias at a domain alias.
    run_sqlite(kAuditAuthDb,
               "DELETE FROM users WHERE name IN ('john', 'j.doe') AND NOT (name = 'j.doe' AND dom_id = "
               "(SELECT id FROM domains WHERE name = 'alias-one.test'));\n");
    ASSERT_EQ(run_sorvane({"--remove-mailbox", "--domain-name=" + kDomain, "--mailname=john",
                           "--domain-aliases=" + kAliasOne + "," + kAliasTwo, "--mail-addresses=" +
                           seeded_mail_addresses()}).status, 0);
    run_sqlite(kAuditAuthDb, insert_user("j.doe", kAliasOne));
    mark_assign_compiled();
    expect_findings({"warning auth-row-without-mailbox j.doe@alias-one.test: an authentication row, but the mail "
                     "name john@example.test has no mailbox row"});
    expect_repaired();
}

TEST_F(StoreRowsTest, AMailboxWithoutARowAtOneOfItsAddressesIsReported) {
    run_sqlite(kAuditAuthDb,
               "DELETE FROM users WHERE name = 'office' AND dom_id = (SELECT id FROM domains WHERE name = "
               "'alias-two.test');\n");
    expect_findings({"error auth-row-missing office@alias-two.test: the mailbox info@example.test has no "
                     "authentication row for this address: logging in with it fails"});
    expect_only_for_a_person({"needs a person: auth-row-missing office@alias-two.test"});
}

TEST_F(StoreRowsTest, ADomainRowOfNoDomainIsALeftover) {
    run_sqlite(kAuditAuthDb, "INSERT INTO domains (name, status) VALUES ('gone.test', 0);\n" +
                                 insert_user("info", "gone.test"));
    // The row is all there is of the domain, and its removal the repair.
    expect_findings({"notice auth-domain-unknown gone.test: the authentication store has a domain row, but the "
                     "domain is neither hosted nor a domain alias"});
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(repair_lines(planned.out),
              std::vector<std::string>{"sorvane --remove-domain --domain-name=gone.test --mail-addresses ''"});
    run_repair_plan(planned.out);
    const ProcessResult after = run_sorvane_audit({});
    EXPECT_EQ(finding_lines(after.out), std::vector<std::string>{}) << after.out;
    EXPECT_EQ(after.status, 0) << after.out;
}

TEST_F(StoreRowsTest, AUserRowOfNoDomainRowIsReported) {
    // The store's own triggers keep users to their domains; a writer that
    // went round them is what leaves such a row.
    const std::string trigger =
        run_sqlite(kAuditAuthDb, "SELECT sql FROM sqlite_master WHERE name = 'fkd_users_domains_id';\n");
    run_sqlite(kAuditAuthDb, "INSERT INTO domains (name, status) VALUES ('orphan.test', 0);\n" +
                                 insert_user("stray", "orphan.test") +
                                 "DROP TRIGGER fkd_users_domains_id;\n"
                                 "DELETE FROM domains WHERE name = 'orphan.test';\n" +
                                 trigger.substr(0, trigger.size() - 1) + ";\n");
    expect_findings({"warning auth-user-orphan " + kAuditAuthDb +
                     ": the user row \"stray\" names the domain id 5, which has no domain row"});
    expect_only_for_a_person({"needs a person: auth-user-orphan " + kAuditAuthDb});
}

TEST_F(StoreRowsTest, AQuotaRowOfNoMailNameIsALeftover) {
    run_sqlite(kAuditQuotaDb, "INSERT INTO mailbox_quota VALUES ('example.test', 'ghost', '0B');\n");
    expect_findings({"notice quota-row-unknown ghost@example.test: a quota row, but assign has no mail name ghost at "
                     "example.test"});
    expect_repaired();
}

TEST_F(StoreRowsTest, AQuotaRowOfNoDomainIsALeftover) {
    run_sqlite(kAuditQuotaDb, "INSERT INTO mailbox_quota VALUES ('gone.test', 'info', '0B');\n");
    expect_findings({"notice quota-row-unknown info@gone.test: a quota row, but assign has no mail name info at "
                     "gone.test"});
    expect_repaired();
}

TEST_F(StoreRowsTest, AHandlerOfNoAddressIsALeftover) {
    run_sqlite(kAuditHandlersDb,
               "INSERT INTO handlers SELECT queue, type, enabled, priority, name, 'ghost@alias-one.test', "
               "executable, context, protected FROM handlers WHERE address = 'info@example.test';\n");
    expect_findings({"notice handler-address-unknown ghost@alias-one.test: the handler spam-filter is set for an "
                     "address that is no mail name or mail alias"});
    expect_repaired();
}

TEST_F(StoreRowsTest, AHandlerOfNoDomainIsALeftover) {
    run_sqlite(kAuditHandlersDb,
               "INSERT INTO handlers SELECT queue, type, enabled, priority, name, 'info@gone.test', "
               "executable, context, protected FROM handlers WHERE address = 'info@example.test';\n");
    expect_findings({"notice handler-address-unknown info@gone.test: the handler spam-filter is set for an "
                     "address that is no mail name or mail alias"});
    expect_repaired();
}

}  // namespace
}  // namespace sorvane::test
