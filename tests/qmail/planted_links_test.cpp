// Links a mail user plants in its own tree never redirect what is made,
// written, chowned or removed there.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "qmail/delivery.h"
#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"

namespace sorvane::test {
namespace {

class PlantedLinksTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
        victim_dir_ = scratch_dir() + "/victim";
        ASSERT_EQ(mkdir(victim_dir_.c_str(), 0755), 0);
        victim_file_ = scratch_dir() + "/victim-file";
        write_file(victim_file_, "precious\n", 0644);
    }

    // A link owned by popuser, as a mail user would make it.
    static void plant_link(const std::string& target, const std::string& at) {
        ASSERT_EQ(symlink(target.c_str(), at.c_str()), 0) << at;
        ASSERT_EQ(lchown(at.c_str(), popuser_uid(), popuser_gid()), 0) << at;
    }

    void expect_victims_untouched() {
        EXPECT_EQ(list_tree(victim_dir_), std::vector<std::string>{});
        const FileInfo dir = file_info(victim_dir_);
        EXPECT_EQ(dir.uid, 0u);
        EXPECT_EQ(dir.mode, 0755u);
        EXPECT_EQ(read_file(victim_file_), "precious\n");
        const FileInfo file = file_info(victim_file_);
        EXPECT_EQ(file.uid, 0u);
        EXPECT_EQ(file.mode, 0644u);
    }

    // Makes the home and Maildir as a mail name would have them, then
    // plants a link at relative inside the home.
    void plant_in_home(const std::string& relative, const std::string& target) {
        const std::string home = home_of("info", "example.test");
        ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
        if (relative.rfind("Maildir/", 0) == 0) {
            ASSERT_EQ(mkdir((home + "/Maildir").c_str(), 0700), 0);
        }
        plant_link(target, home + "/" + relative);
    }

    ProcessResult create_in_child() {
        return run_in_child([] { return create_mailname("info", "example.test"); });
    }

    std::string victim_dir_;
    std::string victim_file_;
};

const std::string kLoop = "Too many levels of symbolic links";

// The planted link was there before the run: the undo, which takes away
// only what the run made, leaves it as it is, never followed.
bool is_link(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

TEST_F(PlantedLinksTest, LinkAtHomeIsRefusedAndLeftAsItWas) {
    plant_link(victim_dir_, home_of("info", "example.test"));
    const ProcessResult result = create_in_child();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to make " + home_of("info", "example.test") + " dir: " + kLoop + "\n");
    EXPECT_TRUE(is_link(home_of("info", "example.test")));
    EXPECT_EQ(read_file(kAssign), ".\n");
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, LinkAtMaildirIsRefused) {
    plant_in_home("Maildir", victim_dir_);
    const ProcessResult result = create_in_child();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to make " + home_of("info", "example.test") + "/Maildir dir: " + kLoop + "\n");
    EXPECT_TRUE(is_link(home_of("info", "example.test") + "/Maildir"));
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, LinkAtSubfolderIsRefused) {
    plant_in_home("Maildir/.Sent", victim_dir_);
    const ProcessResult result = create_in_child();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "Unable to make " + home_of("info", "example.test") + "/Maildir/.Sent dir: " + kLoop + "\n");
    EXPECT_TRUE(is_link(home_of("info", "example.test") + "/Maildir/.Sent"));
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, LinkAtDotQmailIsNotWrittenThrough) {
    plant_in_home(".qmail", victim_file_);
    const ProcessResult result = create_in_child();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to open '" + home_of("info", "example.test") + "/.qmail': " + kLoop + "\n");
    EXPECT_TRUE(is_link(home_of("info", "example.test") + "/.qmail"));
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, WriteTrueQmailRefusesLink) {
    plant_in_home(".qmail", victim_file_);
    EXPECT_EQ(write_true_qmail(home_of("info", "example.test") + "/.qmail"), -1);
    EXPECT_EQ(logged(), std::vector<std::string>{"3 Unable to open '" + home_of("info", "example.test") +
                                                 "/.qmail': " + kLoop});
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, DeliveryLinesAreNotEditedThroughALinkedDotQmail) {
    install_lda(kDeliverquotaPath);
    write_default_delivery(std::string(kDeliverquotaLine) + "\n");
    write_file(victim_file_, "| /usr/bin/deliverquota ./Maildir\n", 0644);
    plant_in_home(".qmail", victim_file_);
    EXPECT_EQ(add_mailname_delivery("info", "example.test"), -1);
    EXPECT_EQ(remove_mailname_delivery("info", "example.test"), -1);
    EXPECT_EQ(read_file(victim_file_), "| /usr/bin/deliverquota ./Maildir\n");
    EXPECT_EQ(file_info(victim_file_).uid, 0u);
    EXPECT_EQ(file_info(victim_file_).mode, 0644u);
}

TEST_F(PlantedLinksTest, WriteQmailLinesRefusesLink) {
    plant_in_home(".qmail", victim_file_);
    EXPECT_EQ(write_qmail_lines(home_of("info", "example.test") + "/.qmail", {"&someone@example.net"}), -1);
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, LinkAtQmailDefaultIsReplacedNotFollowed) {
    plant_link(victim_file_, std::string(kMailnamesDir) + "/example.test/.qmail-default");
    ASSERT_EQ(add_qmail_default("example.test", "&postmaster@example.net"), 0);
    const std::string path = std::string(kMailnamesDir) + "/example.test/.qmail-default";
    EXPECT_EQ(read_file(path), "&postmaster@example.net\n");
    expect_popuser_entry(path, 0600, 'f');
    expect_victims_untouched();
}

TEST_F(PlantedLinksTest, RemovingMailnameRemovesALinkedHomeAsALink) {
    ASSERT_EQ(mkdir((victim_dir_ + "/Maildir").c_str(), 0755), 0);
    plant_link(victim_dir_, home_of("info", "example.test"));
    ASSERT_EQ(remove_mailname_files("info", "example.test"), 0);
    EXPECT_FALSE(path_exists(home_of("info", "example.test")));
    EXPECT_EQ(list_tree(victim_dir_), std::vector<std::string>{"Maildir/"});
}

}  // namespace
}  // namespace sorvane::test
