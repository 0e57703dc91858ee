// The audit of a mail name's Maildir++ tree: incomplete, not popuser's, and
// links, FIFOs, devices, sockets or hard-linked files anywhere in the home.
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

using TreeAuditTest = AuditTest;

const std::string kMessage = "Maildir/new/1700000000.M1P1.mail.example.test";

TEST_F(TreeAuditTest, IncompleteTreeIsMadeWholeAgain) {
    add_mailname("plain");
    fs::remove(home_of("plain") + "/Maildir/.Trash/maildirfolder");
    fs::remove(home_of("plain") + "/Maildir/.Trash/cur");
    fs::remove(home_of("plain") + "/@attachments");
    expect_findings({"error mailname-tree-incomplete plain@example.test: the Maildir++ tree lacks "
                     "Maildir/.Trash/cur, @attachments, Maildir/.Trash/maildirfolder"});
    EXPECT_EQ(repair_and_expect_clean(),
              std::vector<std::string>{"sorvane --add-mailname --domain-name=example.test --mailname=plain"});
}

TEST_F(TreeAuditTest, TreeOfAMailboxNeedsAPerson) {
    fs::remove_all(home_of("box") + "/Maildir/.Spam");
    expect_findings({"error mailname-tree-incomplete box@example.test: the Maildir++ tree lacks Maildir/.Spam, "
                     "Maildir/.Spam/tmp, Maildir/.Spam/new, Maildir/.Spam/cur and 1 more"});
    expect_needs_a_person({"needs a person: mailname-tree-incomplete box@example.test"});
}

TEST_F(TreeAuditTest, TreeNotPopusersIsGivenBack) {
    add_mailname("plain");
    ASSERT_EQ(chown((home_of("plain") + "/Maildir/new").c_str(), 0, 0), 0);
    ASSERT_EQ(chmod((home_of("plain") + "/Maildir").c_str(), 0755), 0);
    ASSERT_EQ(chmod(home_of("plain").c_str(), 0750), 0);
    expect_findings({"error mailname-tree-owner plain@example.test: not popuser's with mode 0700 (0600 for folder "
                     "markers): . (" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) +
                     " 0750), Maildir (" + std::to_string(popuser_uid()) + ":" + std::to_string(popuser_gid()) +
                     " 0755), Maildir/new (0:0 0700)"});
    repair_and_expect_clean();
}

TEST_F(TreeAuditTest, FileWhereATreeDirectoryBelongsIsIncomplete) {
    add_mailname("plain");
    fs::remove(home_of("plain") + "/Maildir/.Drafts/tmp");
    write_popuser_file(home_of("plain") + "/Maildir/.Drafts/tmp", "");
    expect_findings({"error mailname-tree-incomplete plain@example.test: the Maildir++ tree lacks "
                     "Maildir/.Drafts/tmp"});
    // --add-mailname does not replace a file at a directory's name.
    expect_needs_a_person({"needs a person: mailname-tree-incomplete plain@example.test"});
}

TEST_F(TreeAuditTest, SymbolicLinkInTheHomeNeedsAPerson) {
    fs::create_symlink("/etc/shadow", home_of("info") + "/Maildir/cur/1700000001.M2P2.mail:2,S");
    expect_findings({"warning mailname-tree-link "
                     "/var/qmail/mailnames/example.test/info/Maildir/cur/1700000001.M2P2.mail:2,S: a symbolic link "
                     "in the mail tree of info@example.test"});
    expect_needs_a_person({"needs a person: mailname-tree-link "
                           "/var/qmail/mailnames/example.test/info/Maildir/cur/1700000001.M2P2.mail:2,S"});
}

TEST_F(TreeAuditTest, FifoDeviceAndSocketNeedAPerson) {
    ASSERT_EQ(mkfifo((home_of("info") + "/Maildir/tmp/fifo").c_str(), 0600), 0);
    ASSERT_EQ(mknod((home_of("info") + "/@attachments/null").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
    const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(sock, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socket_path = home_of("info") + "/Maildir/.Sent/sock";
    std::strncpy(address.sun_path, socket_path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    close(sock);
    expect_findings({"error mailname-tree-special /var/qmail/mailnames/example.test/info/@attachments/null: a FIFO, "
                     "device or socket in the mail tree of info@example.test",
                     "error mailname-tree-special /var/qmail/mailnames/example.test/info/Maildir/.Sent/sock: a FIFO, "
                     "device or socket in the mail tree of info@example.test",
                     "error mailname-tree-special /var/qmail/mailnames/example.test/info/Maildir/tmp/fifo: a FIFO, "
                     "device or socket in the mail tree of info@example.test"});
}

TEST_F(TreeAuditTest, HardLinkedFileNeedsAPerson) {
    const std::string message = home_of("john") + "/" + kMessage;
    ASSERT_EQ(link(message.c_str(), (home_of("box") + "/Maildir/cur/planted:2,S").c_str()), 0);
    expect_findings({"error mailname-tree-hard-link /var/qmail/mailnames/example.test/box/Maildir/cur/planted:2,S: "
                     "a file with other names (hard links) in the mail tree of box@example.test",
                     "error mailname-tree-hard-link " + message +
                         ": a file with other names (hard links) in the mail tree of john@example.test"});
    expect_needs_a_person({"needs a person: mailname-tree-hard-link "
                           "/var/qmail/mailnames/example.test/box/Maildir/cur/planted:2,S",
                           "needs a person: mailname-tree-hard-link " + message});
}

TEST_F(TreeAuditTest, ManyPlantedEntriesAreCounted) {
    std::vector<std::string> lines;
    for (int i = 0; i < 20; ++i) {
        const std::string name = "link" + std::to_string(100 + i);
        fs::create_symlink("/etc/passwd", home_of("info") + "/Maildir/new/" + name);
        if (i < 16)
            lines.push_back("warning mailname-tree-link /var/qmail/mailnames/example.test/info/Maildir/new/" + name +
                            ": a symbolic link in the mail tree of info@example.test");
    }
    const ProcessResult result = run_sorvane_audit({});
    std::vector<std::string> found = finding_lines(result.out);
    ASSERT_EQ(found.size(), 17u) << result.out;
    EXPECT_EQ(found.front(), "error mailname-tree-unsafe-more /var/qmail/mailnames/example.test/info: 4 more links, "
                             "FIFOs, devices, sockets or hard-linked files in the mail tree of info@example.test");
    EXPECT_EQ(result.status, 1);
    // Which sixteen the walk names first depends on the directory's order.
    for (std::size_t i = 1; i < found.size(); ++i)
        EXPECT_EQ(found[i].rfind("warning mailname-tree-link /var/qmail/mailnames/example.test/info/Maildir/new/link",
                                 0),
                  0u)
            << found[i];
}

TEST_F(TreeAuditTest, AuditLeavesTheTreesAsTheyWere) {
    ASSERT_EQ(mkfifo((home_of("info") + "/Maildir/new/fifo").c_str(), 0600), 0);
    fs::create_symlink("/etc/passwd", home_of("john") + "/Maildir/cur/link");
    ASSERT_EQ(chmod((home_of("box") + "/.qmail").c_str(), 0666), 0);
    const std::string before = mail_tree_listing();
    struct stat fifo_before {};
    ASSERT_EQ(lstat((home_of("info") + "/Maildir/new/fifo").c_str(), &fifo_before), 0);
    EXPECT_EQ(run_sorvane_audit({}).status, 1);
    EXPECT_EQ(mail_tree_listing(), before);
    struct stat fifo_after {};
    ASSERT_EQ(lstat((home_of("info") + "/Maildir/new/fifo").c_str(), &fifo_after), 0);
    EXPECT_EQ(fifo_after.st_atim.tv_sec, fifo_before.st_atim.tv_sec);
    EXPECT_EQ(fifo_after.st_atim.tv_nsec, fifo_before.st_atim.tv_nsec);
}

TEST_F(TreeAuditTest, DeepTreesAreWalkedWhole) {
    std::string dir = home_of("info") + "/Maildir/.Deep";
    fs::create_directories(dir);
    std::string relative;
    for (int i = 0; i < 200; ++i) {
        relative += "/d";
        fs::create_directory(dir + relative);
    }
    ASSERT_EQ(mkfifo((dir + relative + "/fifo").c_str(), 0600), 0);
    const std::string line =
        "error mailname-tree-special " + dir + relative + "/fifo: a FIFO, device or socket in the mail tree of "
        "info@example.test";
    expect_findings({line});
    // A few descriptors are enough however deep the tree goes.
    const ProcessResult limited = run_process({"/usr/bin/prlimit", "--nofile=24", sorvane_audit_path()});
    EXPECT_EQ(limited.err, "");
    EXPECT_EQ(finding_lines(limited.out), std::vector<std::string>{line}) << limited.out;
}

}  // namespace
}  // namespace sorvane::test
