// A panel repairing a mail name or renaming one onto a name that is taken:
// mail, passwords and records that were there before the command stay.
#include "e2e/mailbox_state.h"

#include <regex>

namespace sorvane::test {
namespace {

// Standard error without the "sorvane[<pid>]: " that the log's copy puts in
// front of each message.
std::string without_pids(const std::string& err) {
    return std::regex_replace(err, std::regex("sorvane\\[[0-9]+\\]: "), "");
}

const std::string kJohnHome = kMailnamesDir + "/example.test/john";

std::vector<std::string> session_args() {
    return {"--domain-aliases=" + kAliasOne + "," + kAliasTwo, "--mail-addresses=" + seeded_mail_addresses()};
}

void run_shell(const std::string& script) {
    const ProcessResult result = run_process({"/bin/sh", "-c", script});
    ASSERT_EQ(result.status, 0) << result.err;
}

class KeepMailTest : public SeededServerTest {};

TEST_F(KeepMailTest, ReRunOfAddMailnameThatFailsKeepsMailPasswordAndDeliveryLine) {
    // A file where the Trash folder goes makes the tree step fail.
    run_shell("rm -r " + kJohnHome + "/Maildir/.Trash && echo planted > " + kJohnHome + "/Maildir/.Trash");
    ServerState expected_after = read_server_state();
    const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=john"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Unable to make " + kJohnHome + "/Maildir/.Trash dir: Not a directory\n");
    // The record is put back at the top and the quota row says what the
    // command asked; everything else, the message, the password row and the
    // delivery line included, is as it was.
    const std::string record = mailname_record(kDomain, "john", "john");
    expected_after.assign = record + assign_without(expected_after.assign, record.substr(0, record.size() - 1));
    expected_after.quota_rows =
        sorted_lines(without_lines(expected_after.quota_rows, "example.test|john|") + quota_row(kDomain, "john", "0B"));
    expect_server_state(read_server_state(), expected_after);
}

TEST_F(KeepMailTest, ReRunOfAddMailnameOnAFullDiskKeepsMail) {
    // A home on a full file system: the first folder that is missing cannot
    // be made.
    run_shell("rm -r " + kJohnHome + "/Maildir/.Trash && mkdir " + kJohnHome +
              "/Maildir/.Trash && mount -t tmpfs -o size=4k,nr_inodes=1,mode=0700,uid=" + std::to_string(popuser_uid()) +
              ",gid=" + std::to_string(popuser_gid()) + " full " + kJohnHome + "/Maildir/.Trash");
    ServerState expected_after = read_server_state();
    const auto result = run_sorvane({"--add-mailname", "--domain-name=example.test", "--mailname=john"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Unable to make " + kJohnHome + "/Maildir/.Trash/tmp dir: No space left on device\n");
    const std::string record = mailname_record(kDomain, "john", "john");
    expected_after.assign = record + assign_without(expected_after.assign, record.substr(0, record.size() - 1));
    expected_after.quota_rows =
        sorted_lines(without_lines(expected_after.quota_rows, "example.test|john|") + quota_row(kDomain, "john", "0B"));
    const ServerState actual = read_server_state();
    run_shell("umount " + kJohnHome + "/Maildir/.Trash");
    expect_server_state(actual, expected_after);
}

class RenameOntoExistingTest : public SeededServerTest {
protected:
    void expect_refused(const std::string& what) {
        const ServerState before = read_server_state();
        std::vector<std::string> args = {"--rename-mailname", "--domain-name=example.test", "--old-mailname=info",
                                         "--new-mailname=ghost"};
        for (const std::string& arg : session_args())
            args.push_back(arg);
        const auto result = run_sorvane(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(without_pids(result.err), "Unable to rename info@example.test to ghost@example.test: ghost@example.test already has " +
                                  what + "\n");
        expect_server_state(read_server_state(), before);
    }
};

TEST_F(RenameOntoExistingTest, AnAssignRecordIsRefusedAndNothingChanges) {
    write_file("/var/qmail/users/assign", mailname_record(kDomain, "ghost", "ghost") +
                                              read_file("/var/qmail/users/assign"));
    expect_refused("a record in assign");
}

TEST_F(RenameOntoExistingTest, AMailAliasRecordIsRefusedAndNothingChanges) {
    write_file("/var/qmail/users/assign", mailname_record(kDomain, "ghost", "john") +
                                              read_file("/var/qmail/users/assign"));
    expect_refused("a record in assign");
}

TEST_F(RenameOntoExistingTest, AHomeIsRefusedAndNothingChanges) {
    seed_mail_tree(kDomain, "ghost");
    expect_refused("a home directory");
}

TEST_F(RenameOntoExistingTest, AQuotaRowIsRefusedAndNothingChanges) {
    const auto result = run_process({"/usr/bin/sqlite3", "/var/lib/crelm/mail/userdb/userdb.db",
                                     "INSERT INTO mailbox_quota (domain_name, mailbox_name, quota) "
                                     "VALUES ('example.test', 'ghost', '5B');"});
    ASSERT_EQ(result.status, 0) << result.err;
    expect_refused("a quota record");
}

}  // namespace
}  // namespace sorvane::test
