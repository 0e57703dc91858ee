// Domain signing-key directories following their domain.
#include <sys/mount.h>

#include <filesystem>

#include "mailbox/domain_keys.h"
#include "mailbox/mailbox_test_support.h"

namespace fs = std::filesystem;
using namespace crelm::mail::dkim;

namespace sorvane::test {
namespace {

class DomainKeysTest : public SandboxTest {
protected:
    // A key directory with one key file.
    void make_keys(const std::string& name, const std::string& key = "default") {
        fs::create_directories("/etc/domainkeys/" + name);
        write_file("/etc/domainkeys/" + name + "/" + key, "key of " + name + "\n", 0600);
    }
};

TEST_F(DomainKeysTest, KeyDirectoryIsTheLowerCaseDomainUnderTheBase) {
    EXPECT_EQ(domain_key_dir("Example.COM"), fs::path("/etc/domainkeys/example.com"));
}

TEST_F(DomainKeysTest, NamesLeavingTheBaseAreRefused) {
    for (const char* name : {"", ".", "..", "a/b", "../etc"})
        EXPECT_THROW(domain_key_dir(name), SystemError) << name;
    EXPECT_THROW(removeDomainKeys(".."), SystemError);
    EXPECT_TRUE(path_exists("/etc/domainkeys"));
}

TEST_F(DomainKeysTest, RemoveTakesTheWholeDirectory) {
    make_keys("example.test");
    fs::create_directories("/etc/domainkeys/example.test/sub");
    removeDomainKeys("Example.Test");
    EXPECT_FALSE(path_exists("/etc/domainkeys/example.test"));
}

TEST_F(DomainKeysTest, RemovingMissingKeysIsNotAnError) { EXPECT_NO_THROW(removeDomainKeys("none.test")); }

TEST_F(DomainKeysTest, RemoveEntryRemovesOneEntry) {
    make_keys("example.test");
    removeDomainKeyEntry("/etc/domainkeys/example.test/default");
    EXPECT_TRUE(names_in("/etc/domainkeys/example.test").empty());
    EXPECT_NO_THROW(removeDomainKeyEntry("/etc/domainkeys/example.test/default"));
    EXPECT_THROW(removeDomainKeyEntry("/etc/domainkeys"), fs::filesystem_error);  // not empty
}

TEST_F(DomainKeysTest, CopyDuplicatesTheKeys) {
    make_keys("example.test");
    copyDomainKeys("Example.test", "Alias.Test");
    EXPECT_EQ(read_file("/etc/domainkeys/alias.test/default"), "key of example.test\n");
    EXPECT_EQ(read_file("/etc/domainkeys/example.test/default"), "key of example.test\n");
    EXPECT_EQ(file_info("/etc/domainkeys/alias.test/default").mode, 0600u);
}

TEST_F(DomainKeysTest, CopyAgainOverwrites) {
    make_keys("example.test");
    copyDomainKeys("example.test", "alias.test");
    write_file("/etc/domainkeys/example.test/default", "new key\n", 0600);
    copyDomainKeys("example.test", "alias.test");
    EXPECT_EQ(read_file("/etc/domainkeys/alias.test/default"), "new key\n");
}

TEST_F(DomainKeysTest, CopyWithoutSourceDoesNothing) {
    copyDomainKeys("none.test", "alias.test");
    EXPECT_FALSE(path_exists("/etc/domainkeys/alias.test"));
}

TEST_F(DomainKeysTest, MoveRenamesTheDirectory) {
    make_keys("old.test");
    moveDomainKeys("OLD.test", "New.test");
    EXPECT_FALSE(path_exists("/etc/domainkeys/old.test"));
    EXPECT_EQ(read_file("/etc/domainkeys/new.test/default"), "key of old.test\n");
    EXPECT_NO_THROW(moveDomainKeys("none.test", "other.test"));
    EXPECT_FALSE(path_exists("/etc/domainkeys/other.test"));
}

TEST_F(DomainKeysTest, MoveOntoNonEmptyDestinationThrows) {
    make_keys("old.test");
    make_keys("new.test");
    EXPECT_THROW(moveDomainKeys("old.test", "new.test"), fs::filesystem_error);
    EXPECT_EQ(read_file("/etc/domainkeys/old.test/default"), "key of old.test\n");
}

TEST_F(DomainKeysTest, RenameOfCapitalisedDomainMovesTheLowerCaseDirectory) {
    make_keys("example.com");
    ASSERT_TRUE(renameDomainKeysReport("Example.COM", "New-Name.Example"));
    EXPECT_FALSE(path_exists("/etc/domainkeys/example.com"));
    EXPECT_EQ(read_file("/etc/domainkeys/new-name.example/default"), "key of example.com\n");
}

TEST_F(DomainKeysTest, RenameWithoutOldDirectoryDoesNothing) {
    EXPECT_TRUE(renameDomainKeysReport("none.test", "new.test"));
    EXPECT_FALSE(path_exists("/etc/domainkeys/new.test"));
}

TEST_F(DomainKeysTest, PlainFileInPlaceOfOldDirectoryIsNotADirectory) {
    write_file("/etc/domainkeys/old.test", "not a directory\n");
    try {
        renameDomainKeys("old.test", "new.test");
        FAIL() << "no exception";
    } catch (const SystemError& e) {
        EXPECT_STREQ(e.what(), "key directory path /etc/domainkeys/old.testis not a directory");
    }
}

TEST_F(DomainKeysTest, ReportWritesTheFailureOnStandardErrorAndReturnsFalse) {
    write_file("/etc/domainkeys/old.test", "not a directory\n");
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_FALSE(renameDomainKeysReport("Old.test", "new.test"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot rename domain Old.test to new.test: key directory path "
              "/etc/domainkeys/old.testis not a directory\n");
    EXPECT_EQ(read_file("/etc/domainkeys/old.test"), "not a directory\n");
    EXPECT_FALSE(path_exists("/etc/domainkeys/new.test"));
}

TEST_F(DomainKeysTest, ExistingDestinationIsReplacedNotMerged) {
    make_keys("old.test", "fresh");
    make_keys("new.test", "stale");
    ASSERT_TRUE(renameDomainKeysReport("old.test", "new.test"));
    EXPECT_EQ(names_in("/etc/domainkeys/new.test"), std::vector<std::string>{"fresh"});
    EXPECT_FALSE(path_exists("/etc/domainkeys/old.test"));
}

TEST_F(DomainKeysTest, RenameThatOnlyChangesCaseKeepsTheKeys) {
    make_keys("example.test");
    ASSERT_TRUE(renameDomainKeysReport("Example.test", "example.TEST"));
    EXPECT_EQ(read_file("/etc/domainkeys/example.test/default"), "key of example.test\n");
}

TEST_F(DomainKeysTest, DestinationThatCannotBeRemovedIsReported) {
    make_keys("old.test");
    fs::create_directories("/etc/domainkeys/new.test");
    // A mount point can be emptied but not removed.
    ASSERT_EQ(mount("keys", "/etc/domainkeys/new.test", "tmpfs", 0, nullptr), 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(renameDomainKeysReport("old.test", "new.test"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot rename domain old.test to new.test: Cannot remove destination path: "
              "/etc/domainkeys/new.test\n");
    EXPECT_EQ(read_file("/etc/domainkeys/old.test/default"), "key of old.test\n");
    umount2("/etc/domainkeys/new.test", MNT_DETACH);
}

TEST_F(DomainKeysTest, DestinationThatCannotBeCreatedIsReported) {
    make_keys("old.test");
    ASSERT_EQ(mount("/etc/domainkeys", "/etc/domainkeys", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, "/etc/domainkeys", nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    try {
        renameDomainKeys("old.test", "new.test");
        ADD_FAILURE() << "no exception";
    } catch (const SystemError& e) {
        EXPECT_STREQ(e.what(), "cannot create directory: /etc/domainkeys/new.test");
    }
    umount2("/etc/domainkeys", MNT_DETACH);
    EXPECT_EQ(read_file("/etc/domainkeys/old.test/default"), "key of old.test\n");
}

TEST_F(DomainKeysTest, ReportOfAnUnsafeNameGivesItsReason) {
    make_keys("old.test");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(renameDomainKeysReport("old.test", "../x"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot rename domain old.test to ../x: invalid domain name for a key directory: '../x'\n");
    EXPECT_EQ(read_file("/etc/domainkeys/old.test/default"), "key of old.test\n");
}

}  // namespace
}  // namespace sorvane::test
