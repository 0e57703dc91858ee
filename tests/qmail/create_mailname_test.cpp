#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "qmail/mailname_files.h"
#include "qmail/qmail_test_support.h"
#include "qmail/session_hooks.h"

namespace sorvane::test {
namespace {

using crelm::qmail::SessionHooks;

class CreateMailnameTest : public QmailTest {
protected:
    void SetUp() override {
        QmailTest::SetUp();
        make_domain_dir("example.test");
        SessionHooks hooks;
        hooks.init_quota_record = [this](std::string_view domain, std::string_view mailname) {
            quota_calls_.push_back(std::string(mailname) + "@" + std::string(domain));
            return quota_result_;
        };
        crelm::qmail::set_qmail_session_hooks(hooks);
    }

    std::vector<std::string> quota_calls_;
    int quota_result_ = 1;
};

TEST_F(CreateMailnameTest, MakesRecordHomeDotQmailAndWholeTree) {
    ASSERT_EQ(create_mailname("Info", "Example.test"), 0);
    const std::string home = home_of("info", "example.test");
    EXPECT_EQ(read_file(kAssign), assign_record("info", "example.test") + "\n.\n");
    EXPECT_EQ(list_tree(home), expected_home_listing());
    expect_home_owned(home);
    EXPECT_EQ(read_file(home + "/.qmail"), "| true\n");
    EXPECT_EQ(read_file(home + "/Maildir/.Spam/maildirfolder"), "");
    EXPECT_EQ(quota_calls_, std::vector<std::string>{"Info@Example.test"});
    EXPECT_TRUE(logged().empty());
}

// The names created in each watched directory, in the order they came.
std::map<std::string, std::vector<std::string>> creations(int inotify, const std::map<int, std::string>& watched) {
    std::map<std::string, std::vector<std::string>> made;
    alignas(inotify_event) char buffer[65536];
    for (ssize_t got; (got = read(inotify, buffer, sizeof buffer)) > 0;) {
        for (char* at = buffer; at < buffer + got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(at);
            made[watched.at(event->wd)].push_back(event->name);
            at += sizeof(inotify_event) + event->len;
        }
    }
    return made;
}

TEST_F(CreateMailnameTest, TreeIsMadeInTableOrderWithMarkersAfterEachFolder) {
    const std::string home = home_of("info", "example.test");
    const std::vector<std::string> dirs{"", "/Maildir", "/Maildir/.Spam", "/Maildir/.Sent", "/Maildir/.Drafts",
                                        "/Maildir/.Trash"};
    for (const std::string& dir : dirs)
        ASSERT_EQ(mkdir((home + dir).c_str(), 0700), 0) << dir;
    const int inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify, 0);
    std::map<int, std::string> watched;
    for (const std::string& dir : dirs)
        watched[inotify_add_watch(inotify, (home + dir).c_str(), IN_CREATE)] = dir;

    ASSERT_EQ(create_mailname("info", "example.test"), 0);
    const auto made = creations(inotify, watched);
    close(inotify);
    const std::vector<std::string> folder{"tmp", "new", "cur", "maildirfolder"};
    EXPECT_EQ(made.at(""), (std::vector<std::string>{".qmail", "@attachments"}));
    EXPECT_EQ(made.at("/Maildir"), (std::vector<std::string>{"tmp", "new", "cur"}));
    for (const char* name : {"/Maildir/.Spam", "/Maildir/.Sent", "/Maildir/.Drafts", "/Maildir/.Trash"})
        EXPECT_EQ(made.at(name), folder) << name;
    EXPECT_EQ(list_tree(home), expected_home_listing());
    expect_home_owned(home);
}

TEST_F(CreateMailnameTest, RecreatingExistingMailnameResetsOwnersAndModes) {
    ASSERT_EQ(create_mailname("info", "example.test"), 0);
    const std::string home = home_of("info", "example.test");
    // Everything handed to root with other modes, the ".qmail" emptied.
    ASSERT_EQ(chown(home.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(home.c_str(), 0755), 0);
    for (const std::string& entry : list_tree(home)) {
        const std::string path = home + "/" + entry;
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
        ASSERT_EQ(chmod(path.c_str(), entry.back() == '/' ? 0755 : 0666), 0);
    }
    write_file(home + "/.qmail", "| /usr/bin/deliverquota ./Maildir\n", 0666);

    ASSERT_EQ(create_mailname("info", "example.test"), 0);
    EXPECT_EQ(list_tree(home), expected_home_listing());
    expect_home_owned(home);
    EXPECT_EQ(read_file(home + "/.qmail"), "| true\n");
    EXPECT_EQ(read_file(kAssign), assign_record("info", "example.test") + "\n.\n");
}

TEST_F(CreateMailnameTest, KeepsOtherRecordsAndPutsItsOwnOnTop) {
    write_file(kAssign, assign_record("old", "example.test") + "\n.\n");
    ASSERT_EQ(create_mailname("new", "example.test"), 0);
    EXPECT_EQ(read_file(kAssign), assign_record("new", "example.test") + "\n" + assign_record("old", "example.test") +
                                      "\n.\n");
}

TEST_F(CreateMailnameTest, InvalidNamesEndTheProgramBeforeAnythingIsWritten) {
    for (const auto& [mailname, domain] : std::vector<std::pair<std::string, std::string>>{
             {"in fo", "example.test"}, {"info", "exa mple.test"}, {"", "example.test"}, {"info", ""}}) {
        const ProcessResult result = run_in_child([&] { return create_mailname(mailname, domain); });
        EXPECT_EQ(result.status, 1) << mailname << "@" << domain;
        EXPECT_EQ(result.out, "invalid mailname or domain name.\n");
        EXPECT_EQ(result.err, "invalid mailname or domain name.\n");
    }
    EXPECT_EQ(read_file(kAssign), ".\n");
    EXPECT_EQ(list_tree(std::string(kMailnamesDir) + "/example.test"), std::vector<std::string>{});
}

// The failures below all come after the assign record is written: what
// the run made is taken away again before the program ends, and what was
// there before it stays.
void expect_ended(const ProcessResult& result, const std::string& message) {
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, message + "\n");
    EXPECT_EQ(result.err, message + "\n");
    EXPECT_EQ(read_file(kAssign), ".\n");
}

void expect_undone(const ProcessResult& result, const std::string& message) {
    expect_ended(result, message);
    EXPECT_FALSE(path_exists(home_of("info", "example.test")));
}

TEST_F(CreateMailnameTest, FileInThePlaceOfTheHomeStaysAndTheNewRecordGoes) {
    write_file(home_of("info", "example.test"), "in the way\n");
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    expect_ended(result, "Unable to make " + home_of("info", "example.test") + " dir: Not a directory");
    EXPECT_EQ(read_file(home_of("info", "example.test")), "in the way\n");
}

TEST_F(CreateMailnameTest, MissingDomainDirectoryIsUndone) {
    const ProcessResult result = run_in_child([] { return create_mailname("info", "other.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to make " + home_of("info", "other.test") + " dir: No such file or directory\n");
    EXPECT_EQ(read_file(kAssign), ".\n");
}

TEST_F(CreateMailnameTest, SubfolderThatCannotBeMadeTakesAwayOnlyWhatTheRunMade) {
    const std::string home = home_of("info", "example.test");
    ASSERT_EQ(mkdir(home.c_str(), 0700), 0);
    ASSERT_EQ(mkdir((home + "/Maildir").c_str(), 0700), 0);
    write_file(home + "/Maildir/.Sent", "in the way\n");
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    expect_ended(result, "Unable to make " + home + "/Maildir/.Sent dir: Not a directory");
    EXPECT_EQ(list_tree(home), (std::vector<std::string>{"Maildir/", "Maildir/.Sent"}));
    EXPECT_EQ(read_file(home + "/Maildir/.Sent"), "in the way\n");
}

TEST_F(CreateMailnameTest, FolderMarkerThatCannotBeMadeTakesAwayOnlyWhatTheRunMade) {
    const std::string home = home_of("info", "example.test");
    for (const char* dir : {"", "/Maildir", "/Maildir/.Spam", "/Maildir/.Spam/maildirfolder"})
        ASSERT_EQ(mkdir((home + dir).c_str(), 0700), 0) << dir;
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    expect_ended(result, "Unable to make " + home + "/Maildir/.Spam/maildirfolder file: Is a directory");
    EXPECT_EQ(list_tree(home), (std::vector<std::string>{"Maildir/", "Maildir/.Spam/", "Maildir/.Spam/maildirfolder/"}));
}

TEST_F(CreateMailnameTest, FailedQuotaRecordIsUndone) {
    quota_result_ = 0;
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    expect_undone(result, "Unable to initialize quota settings for info@example.test");
}

TEST_F(CreateMailnameTest, UndoKeepsTheAuthenticationRecordItDidNotMake) {
    ASSERT_EQ(add_auth_user("info", "example.test"), 0);
    quota_result_ = 0;
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    expect_undone(result, "Unable to initialize quota settings for info@example.test");
    EXPECT_EQ(auth_users(), "info@example.test\n");
}

TEST_F(CreateMailnameTest, UndoOfAnExistingMailNameKeepsItsRecordMailAndDotQmail) {
    const std::string home = home_of("info", "example.test");
    ASSERT_EQ(create_mailname("info", "example.test"), 0);
    write_file(home + "/.qmail", "| true\n| /usr/bin/deliverquota ./Maildir\n", 0600);
    write_file(home + "/Maildir/new/1.mail", "hello\n", 0600);
    const std::vector<std::string> before = list_tree(home);
    quota_result_ = 0;
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Unable to initialize quota settings for info@example.test\n");
    EXPECT_EQ(read_file(kAssign), assign_record("info", "example.test") + "\n.\n");
    EXPECT_EQ(list_tree(home), before);
    EXPECT_EQ(read_file(home + "/.qmail"), "| true\n| /usr/bin/deliverquota ./Maildir\n");
    EXPECT_EQ(read_file(home + "/Maildir/new/1.mail"), "hello\n");
}

TEST_F(CreateMailnameTest, RemoveMailnameFilesTakesRecordRowAndTreeAway) {
    write_file(kAssign, assign_record("keep", "example.test") + "\n.\n");
    ASSERT_EQ(create_mailname("info", "example.test"), 0);
    ASSERT_EQ(add_auth_user("info", "example.test"), 0);
    ASSERT_EQ(remove_mailname_files("info", "example.test"), 0);
    EXPECT_EQ(read_file(kAssign), assign_record("keep", "example.test") + "\n.\n");
    EXPECT_FALSE(path_exists(home_of("info", "example.test")));
    EXPECT_EQ(auth_users(), "");
    EXPECT_EQ(list_tree(std::string(kMailnamesDir) + "/example.test"), std::vector<std::string>{});
}

// /etc/passwd of the test without the mail owner.
void forget_popuser() {
    std::string kept;
    std::istringstream lines(read_file("/etc/passwd"));
    for (std::string line; std::getline(lines, line);)
        if (line.rfind("popuser:", 0) != 0)
            kept += line + "\n";
    write_file("/etc/passwd", kept, 0644);
}

TEST_F(CreateMailnameTest, UnknownMailOwnerEndsTheProgramBeforeAnythingIsWritten) {
    forget_popuser();
    const ProcessResult result = run_in_child([] { return create_mailname("info", "example.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to getpwnam for user popuser\nUnable to define UID or GID for user popuser\n");
    EXPECT_EQ(read_file(kAssign), ".\n");
    EXPECT_FALSE(path_exists(home_of("info", "example.test")));
}

TEST_F(CreateMailnameTest, UnknownMailOwnerEndsRemoval) {
    forget_popuser();
    const ProcessResult result = run_in_child([] { return remove_mailname_files("info", "example.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Unable to getpwnam for user popuser\nUnable to get popuser uid or gid\n");
}

TEST_F(CreateMailnameTest, UnknownMailOwnerFailsQmailDefault) {
    forget_popuser();
    EXPECT_EQ(add_qmail_default("example.test", "&all@example.net"), -1);
    EXPECT_EQ(logged(),
              std::vector<std::string>{"3 add_qmail_default: Unable to define UID or GID for user popuser"});
    EXPECT_FALSE(path_exists(std::string(kMailnamesDir) + "/example.test/.qmail-default"));
}

TEST_F(CreateMailnameTest, RemoveMailnameFilesRefusesEmptyNames) {
    const ProcessResult result = run_in_child([] { return remove_mailname_files("", "example.test"); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "empty mailname or maildomain\n");
}

}  // namespace
}  // namespace sorvane::test
