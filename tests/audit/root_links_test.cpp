// Configured roots that are symbolic links, as when the mail lives on a
// data disk: a link of root's to a directory only root can change is
// followed, as sorvane follows it, and reported once as a notice; any other
// link at a root is an error, and links below a root are never followed.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

const std::string kDisk = "/var/qmail/mailnames-disk";

const std::string kFollowed = "notice root-link-followed /var/qmail/mailnames: a symbolic link to " + kDisk +
                              ", root's, to a directory no one else can change: followed, as sorvane follows it";

class RootLinksTest : public AuditTest {
protected:
    // The mail names directory moved to the "disk", a link of root's left.
    void link_mail_names() {
        ASSERT_EQ(::rename(kMailnamesDir.c_str(), kDisk.c_str()), 0);
        ASSERT_EQ(::symlink(kDisk.c_str(), kMailnamesDir.c_str()), 0);
    }
};

TEST_F(RootLinksTest, ALinkedMailNamesDirectoryIsReadThroughWithOneNotice) {
    link_mail_names();
    expect_findings({kFollowed});
    // sorvane works through the same link, and the audit follows it.
    add_mailname("linked");
    expect_findings({kFollowed});
    expect_needs_a_person({"needs a person: root-link-followed /var/qmail/mailnames"});
}

TEST_F(RootLinksTest, ALinkedStoreDirectoryIsReadThroughWithOneNotice) {
    const std::string store = "/var/lib/crelm/mail/handlers";
    ASSERT_EQ(::rename(store.c_str(), "/var/lib/crelm/handlers-disk"), 0);
    ASSERT_EQ(::symlink("/var/lib/crelm/handlers-disk", store.c_str()), 0);
    expect_findings({"notice root-link-followed " + store +
                     ": a symbolic link to /var/lib/crelm/handlers-disk, root's, to a directory no one else can "
                     "change: followed, as sorvane follows it"});
}

TEST_F(RootLinksTest, ALinkToADirectoryOthersMayWriteIsAnError) {
    link_mail_names();
    ASSERT_EQ(::chmod(kDisk.c_str(), 0777), 0);
    expect_findings({"error root-link-unsafe /var/qmail/mailnames: a symbolic link to " + kDisk +
                     " that leads to a directory that group or others may write: whoever can change it decides what "
                     "sorvane reads and writes"});
}

TEST_F(RootLinksTest, ALinkIntoADirectoryOthersMayChangeIsAnError) {
    ASSERT_EQ(::mkdir("/var/qmail/open", 0777), 0);
    ASSERT_EQ(::chmod("/var/qmail/open", 0777), 0);
    ASSERT_EQ(::rename(kMailnamesDir.c_str(), "/var/qmail/open/mailnames"), 0);
    ASSERT_EQ(::symlink("/var/qmail/open/mailnames", kMailnamesDir.c_str()), 0);
    expect_findings({"error root-link-unsafe /var/qmail/mailnames: a symbolic link to /var/qmail/open/mailnames "
                     "that leads into /var/qmail/open, which someone other than root may change: whoever can change "
                     "it decides what sorvane reads and writes"});
}

TEST_F(RootLinksTest, ALinkRootDoesNotOwnIsAnError) {
    link_mail_names();
    ASSERT_EQ(::lchown(kMailnamesDir.c_str(), popuser_uid(), popuser_gid()), 0);
    expect_findings({"error root-link-unsafe /var/qmail/mailnames: a symbolic link to " + kDisk +
                     " that root does not own: sorvane refuses it, and neither program reads through it"});
}

TEST_F(RootLinksTest, ALinkBelowTheRootIsNotFollowed) {
    const std::string domain_dir = kMailnamesDir + "/" + kNeighbour;
    ASSERT_EQ(::rename(domain_dir.c_str(), "/var/qmail/neighbour-disk"), 0);
    ASSERT_EQ(::symlink("/var/qmail/neighbour-disk", domain_dir.c_str()), 0);
    const std::vector<std::string> lines = finding_lines(run_sorvane_audit({}).out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "error domain-missing-directory " + kNeighbour + ": no directory " + domain_dir);
}

}  // namespace
}  // namespace sorvane::test
