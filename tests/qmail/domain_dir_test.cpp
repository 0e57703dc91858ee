#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

using DomainDirTest = QmailTest;

TEST_F(DomainDirTest, CreatesLowerCaseAsciiDirectoryOwnedByPopuser) {
    umask(022);
    ASSERT_EQ(create_domain_dir("Bücher.EXAMPLE"), 0);
    expect_popuser_entry(std::string(kMailnamesDir) + "/xn--bcher-kva.example", 0700, 'd');
    EXPECT_EQ(list_tree(kMailnamesDir), std::vector<std::string>{"xn--bcher-kva.example/"});
}

TEST_F(DomainDirTest, ExistingDirectoryGetsOwnerAndModeBack) {
    const std::string dir = std::string(kMailnamesDir) + "/example.test";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    write_file(dir + "/.qmail-default", "&all@example.net\n");
    ASSERT_EQ(create_domain_dir("example.test"), 0);
    expect_popuser_entry(dir, 0700, 'd');
    EXPECT_EQ(read_file(dir + "/.qmail-default"), "&all@example.net\n");
}

TEST_F(DomainDirTest, MissingParentsAreMade) {
    write_file("/etc/qvt/qvt.conf", "CRELM_MAILNAMES_D /var/qmail/other/names\n", 0644);
    ASSERT_EQ(create_domain_dir("example.test"), 0);
    expect_popuser_entry("/var/qmail/other/names/example.test", 0700, 'd');
    EXPECT_EQ(file_info("/var/qmail/other/names").uid, 0u);
    EXPECT_EQ(file_info("/var/qmail/other/names").mode & 0700, 0700u);
}

TEST_F(DomainDirTest, DirectoryThatCannotBeMadeFails) {
    write_file(std::string(kMailnamesDir) + "/example.test", "in the way\n");
    const ProcessResult result = run_in_child([] { return -create_domain_dir("example.test"); });
    EXPECT_EQ(result.status, 1);
    const std::string message = "recursive mkdir(/var/qmail/mailnames/example.test) failed: Not a directory\n";
    EXPECT_EQ(result.out, message);
    EXPECT_EQ(result.err, message);
}

TEST_F(DomainDirTest, RenameMovesTheTree) {
    make_domain_dir("old.test");
    write_file(std::string(kMailnamesDir) + "/old.test/.qmail-default", "&all@example.net\n");
    ASSERT_EQ(rename_domain_dir("Old.Test", "New.Test"), 0);
    EXPECT_EQ(list_tree(kMailnamesDir), (std::vector<std::string>{"new.test/", "new.test/.qmail-default"}));
    expect_popuser_entry(std::string(kMailnamesDir) + "/new.test", 0700, 'd');
}

TEST_F(DomainDirTest, RenameOfMissingDirectoryFails) {
    const ProcessResult result = run_in_child([] { return rename_domain_dir("old.test", "new.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Mail directory /var/qmail/mailnames/old.test not exists.\n");
    EXPECT_EQ(result.err, "Mail directory /var/qmail/mailnames/old.test not exists.\n");
    EXPECT_EQ(list_tree(kMailnamesDir), std::vector<std::string>{});
}

TEST_F(DomainDirTest, RenameOntoExistingDirectoryFails) {
    make_domain_dir("old.test");
    make_domain_dir("new.test");
    write_file(std::string(kMailnamesDir) + "/old.test/.qmail-default", "&old@example.net\n");
    const ProcessResult result = run_in_child([] { return rename_domain_dir("old.test", "new.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Mail directory /var/qmail/mailnames/new.test already exists.\n");
    EXPECT_EQ(list_tree(kMailnamesDir),
              (std::vector<std::string>{"new.test/", "old.test/", "old.test/.qmail-default"}));
}

}  // namespace
}  // namespace sorvane::test
