// The audit of a mail name's ".qmail": missing, not popuser's, writable by
// group or others, and its delivery line against the authentication store.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

using DotQmailAuditTest = AuditTest;

const std::string kDeliveryLine = "| /usr/bin/deliverquota ./Maildir\n";

TEST_F(DotQmailAuditTest, MissingDotQmailOfAMailNameIsWrittenAgain) {
    add_mailname("plain");
    fs::remove(home_of("plain") + "/.qmail");
    expect_findings({"error mailname-dot-qmail-missing plain@example.test: no "
                     "/var/qmail/mailnames/example.test/plain/.qmail: qmail delivers its mail by the server's "
                     "default"});
    EXPECT_EQ(repair_and_expect_clean(),
              std::vector<std::string>{"sorvane --add-mailname --domain-name=example.test --mailname=plain"});
    EXPECT_EQ(read_file(home_of("plain") + "/.qmail"), "| true\n");
}

TEST_F(DotQmailAuditTest, MissingDotQmailOfAMailboxNeedsAPerson) {
    fs::remove(home_of("john") + "/.qmail");
    expect_findings({"error mailname-dot-qmail-missing john@example.test: no "
                     "/var/qmail/mailnames/example.test/john/.qmail: qmail delivers its mail by the server's "
                     "default"});
    expect_needs_a_person({"needs a person: mailname-dot-qmail-missing john@example.test"});
}

TEST_F(DotQmailAuditTest, DotQmailNotPopusersIsGivenBack) {
    add_mailname("plain");
    ASSERT_EQ(chown((home_of("plain") + "/.qmail").c_str(), 0, 0), 0);
    expect_findings({"error mailname-dot-qmail-owner plain@example.test: "
                     "/var/qmail/mailnames/example.test/plain/.qmail is 0:0 0600, not popuser's"});
    repair_and_expect_clean();
}

TEST_F(DotQmailAuditTest, WritableDotQmailIsMadePrivate) {
    add_mailname("plain");
    ASSERT_EQ(chmod((home_of("plain") + "/.qmail").c_str(), 0664), 0);
    expect_findings({"error mailname-dot-qmail-writable plain@example.test: "
                     "/var/qmail/mailnames/example.test/plain/.qmail has mode 0664: qmail defers all its mail "
                     "while group or others may write it"});
    repair_and_expect_clean();
}

TEST_F(DotQmailAuditTest, WritableDotQmailOfAMailboxNeedsAPerson) {
    ASSERT_EQ(chmod((home_of("box") + "/.qmail").c_str(), 0606), 0);
    expect_findings({"error mailname-dot-qmail-writable box@example.test: "
                     "/var/qmail/mailnames/example.test/box/.qmail has mode 0606: qmail defers all its mail "
                     "while group or others may write it"});
    expect_needs_a_person({"needs a person: mailname-dot-qmail-writable box@example.test"});
}

TEST_F(DotQmailAuditTest, DeliveryLineWithoutAuthenticationRowNeedsAPerson) {
    add_mailname("plain");
    write_popuser_file(home_of("plain") + "/.qmail", "| true\n" + kDeliveryLine);
    expect_findings({"error mailbox-login-missing plain@example.test: .qmail delivers to the mailbox but the "
                     "authentication store has no row for it: nobody can read its mail (--add-mailbox with its "
                     "password repairs it)"});
    expect_needs_a_person({"needs a person: mailbox-login-missing plain@example.test"});
}

TEST_F(DotQmailAuditTest, EveryKnownDeliveryLineCounts) {
    const std::vector<std::string> lines = {
        "./Maildir/\n",
        "| /usr/bin/deliverquota -w 95 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir\n",
        "| /usr/lib/dovecot/dovecot-lda -d \"$DELIVERED_TO\" -a \"${ORIGINAL_RECIPIENT:-$DELIVERED_TO}\"\n"};
    for (const std::string& line : lines) {
        write_popuser_file(home_of("john") + "/.qmail", "| true\n" + line);
        expect_findings({});
    }
}

TEST_F(DotQmailAuditTest, AuthenticationRowWithoutDeliveryLineNeedsAPerson) {
    write_popuser_file(home_of("john") + "/.qmail", "| true\n");
    expect_findings({"error mailbox-delivery-missing john@example.test: the authentication store has a row for it "
                     "but .qmail has no delivery line: its mail is discarded (--add-mailbox with its password "
                     "repairs it)"});
    expect_needs_a_person({"needs a person: mailbox-delivery-missing john@example.test"});
}

TEST_F(DotQmailAuditTest, AddMailboxWithThePasswordRepairsIt) {
    write_popuser_file(home_of("john") + "/.qmail", "| true\n");
    const ProcessResult added =
        run_sorvane({"--add-mailbox", "--domain-name=" + kDomain, "--mailname=john",
                     "--domain-aliases=" + kAliasOne + "," + kAliasTwo, "--mail-addresses=" + seeded_mail_addresses()},
                    {RunOptions::Stdin::Null, "", std::nullopt, {"QVT_PASSWORD=" + seeded_password("john")}, {}});
    ASSERT_EQ(added.status, 0) << added.err;
    expect_findings({});
}

TEST_F(DotQmailAuditTest, OversizedDotQmailNeedsAPerson) {
    write_popuser_file(home_of("john") + "/.qmail", std::string(2 << 20, '#'));
    expect_findings({"error mailname-dot-qmail-unreadable john@example.test: "
                     "/var/qmail/mailnames/example.test/john/.qmail: too large"});
    expect_needs_a_person({"needs a person: mailname-dot-qmail-unreadable john@example.test"});
}

}  // namespace
}  // namespace sorvane::test
