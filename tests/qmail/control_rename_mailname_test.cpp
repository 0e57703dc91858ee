// Renaming a mail name: its record, its home, its aliases' records, its
// authentication records and its ".qmail", beside mail names that a plain
// pattern would also catch.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"
#include "qmail/session_hooks.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"
#include "stores/store_test_support.h"

namespace sorvane::test {
namespace {

const std::string kDomain = "example.test";
const std::string kDomainDir = std::string(kMailnamesPath) + "/example.test";

std::string home(const std::string& name) {
    return kDomainDir + "/" + name;
}

std::string dot_qmail_of(const std::string& name) {
    return "&" + name + "@example.test\n&" + name + "@elsewhere.test\n| /usr/bin/deliverquota ./Maildir\n";
}

// dot_qmail_of(old_name) after the rename: only the address at the domain
// follows it; the one at another domain is someone else's.
std::string dot_qmail_renamed(const std::string& old_name, const std::string& new_name) {
    return "&" + new_name + "@example.test\n&" + old_name + "@elsewhere.test\n| /usr/bin/deliverquota ./Maildir\n";
}

class ControlRenameMailnameTest : public ControlFilesTest {
protected:
    // Mail names whose names a pattern taken as a regular expression, or a
    // replacement taken as sed text, would confuse with a.b.
    const std::vector<std::string> names_{"a.b", "axb", "a&b", "o'neil", "x+y"};

    void SetUp() override {
        ControlFilesTest::SetUp();
        ASSERT_EQ(mkdir(kDomainDir.c_str(), 0700), 0);
        std::vector<std::string> records;
        for (const std::string& name : names_) {
            records.push_back(name_record(kDomain, name, name));
            records.push_back(name_record(kDomain, "alias-" + name, name));
            ASSERT_EQ(mkdir(home(name).c_str(), 0700), 0);
            write_file(home(name) + "/.qmail", dot_qmail_of(name), 0600);
            ASSERT_EQ(chown(home(name).c_str(), popuser_uid(), popuser_gid()), 0);
            ASSERT_EQ(chown((home(name) + "/.qmail").c_str(), popuser_uid(), popuser_gid()), 0);
        }
        write_file(kAssignPath, assign_of(records));
    }

    // assign as set up, with name's two records changed by rename: its own
    // record replaced by to_record at the top, its alias's record pointing
    // at to's home.
    std::string assign_after(const std::string& name, const std::string& to) const {
        std::vector<std::string> records{name_record(kDomain, to, to)};
        for (const std::string& other : names_) {
            if (other != name)
                records.push_back(name_record(kDomain, other, other));
            records.push_back(name_record(kDomain, "alias-" + other, other == name ? to : other));
        }
        return assign_of(records);
    }

    void expect_untouched_neighbours(const std::string& renamed) const {
        for (const std::string& name : names_) {
            if (name == renamed)
                continue;
            EXPECT_EQ(read_file(home(name) + "/.qmail"), dot_qmail_of(name)) << name;
        }
    }
};

TEST_F(ControlRenameMailnameTest, TheRecordHomeAliasesAndDotQmailFollowAndNothingElse) {
    const StepResult step = run_step([] { return qmail_rename_mailname("A.b", "example.test", "C&D", ""); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(step.printed.err, "");
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c&d"));
    expect_dot_last();
    const FileInfo assign = file_info(kAssignPath);
    EXPECT_EQ(assign.mode, 0644u);
    EXPECT_EQ(assign.uid, 0u);
    EXPECT_FALSE(path_exists(home("a.b")));
    EXPECT_EQ(read_file(home("c&d") + "/.qmail"), dot_qmail_renamed("a.b", "c&d"));
    const FileInfo dot_qmail = file_info(home("c&d") + "/.qmail");
    EXPECT_EQ(dot_qmail.uid, popuser_uid());
    EXPECT_EQ(dot_qmail.gid, popuser_gid());
    EXPECT_EQ(dot_qmail.mode, 0600u);
    expect_untouched_neighbours("a.b");
    EXPECT_EQ(entries_of(home("c&d")), std::vector<std::string>{".qmail"});
    EXPECT_EQ(entries_of("/var/qmail/users"), std::vector<std::string>{"assign"});
}

TEST_F(ControlRenameMailnameTest, NamesWithQuotesAndPlusSignsAreTakenLiterally) {
    ASSERT_EQ(qmail_rename_mailname("o'neil", "example.test", "a.b.c", ""), 0);
    EXPECT_EQ(read_file(kAssignPath), assign_after("o'neil", "a.b.c"));
    EXPECT_EQ(read_file(home("a.b.c") + "/.qmail"), dot_qmail_renamed("o'neil", "a.b.c"));
    expect_untouched_neighbours("o'neil");
}

TEST_F(ControlRenameMailnameTest, BackslashesAndTheDelimiterInTheNewNameAreTakenLiterally) {
    ASSERT_EQ(qmail_rename_mailname("x+y", "example.test", "x\\y|z", ""), 0);
    EXPECT_EQ(read_file(kAssignPath), assign_after("x+y", "x\\y|z"));
    EXPECT_EQ(read_file(home("x\\y|z") + "/.qmail"), dot_qmail_renamed("x+y", "x\\y|z"));
    expect_untouched_neighbours("x+y");
}

TEST_F(ControlRenameMailnameTest, AuthenticationRecordsAreRenamedAtTheDomainAndItsAliases) {
    crelm::qmail::SessionHooks hooks;
    hooks.domain_aliases = [](std::string_view domain, crelm::qmail::NameList& aliases) {
        EXPECT_EQ(domain, "example.test");
        aliases = std::vector<std::string>{"Alias.test"};
        return 0;
    };
    crelm::qmail::set_qmail_session_hooks(hooks);
    for (const char* domain : {"example.test", "alias.test"})
        for (const char* name : {"a.b", "axb", "sales"})
            ASSERT_EQ(add_mail_auth_user(name, domain, std::string("secret-") + name, 0), 0);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c&d", "secret"); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(),
                         "SELECT u.name || '@' || d.name FROM users u, domains d WHERE u.dom_id = d.id "
                         "ORDER BY d.name, u.name;"),
              "axb@alias.test\nc&d@alias.test\nsales@alias.test\naxb@example.test\nc&d@example.test\n"
              "sales@example.test\n");
    MailAuthUser user;
    ASSERT_EQ(get_mail_auth_user("alias.test", "c&d", user), 0);
    EXPECT_EQ(user.name, "c&d");
}

TEST_F(ControlRenameMailnameTest, WithoutTheTextArgumentTheAuthenticationRecordsStay) {
    ASSERT_EQ(add_mail_auth_user("a.b", "example.test", "secret", 0), 0);
    ASSERT_EQ(qmail_rename_mailname("a.b", "example.test", "c", ""), 0);
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "a.b\n");
}

TEST_F(ControlRenameMailnameTest, AFailedAuthenticationRenameTakesTheOldRecordAwayAndFails) {
    ASSERT_EQ(add_mail_auth_user("a.b", "example.test", "old", 0), 0);
    ASSERT_EQ(add_mail_auth_user("c", "example.test", "taken", 0), 0);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", "secret"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to rename auth record a.b@example.test -> c@example.test\n");
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "c\n");
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
}

TEST_F(ControlRenameMailnameTest, AFailingStoreKeepsTheOldRecordAndItsPasswordForTheNextRun) {
    ASSERT_EQ(add_mail_auth_user("a.b", "example.test", "old", 0), 0);
    sqlite_cli(mail_auth_db_path(),
               "CREATE TRIGGER refuse BEFORE UPDATE ON users BEGIN SELECT RAISE(ABORT, 'disk failing'); END;");
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", "secret"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to rename auth record a.b@example.test -> c@example.test\n");
    MailAuthUser user;
    ASSERT_EQ(get_mail_auth_user("example.test", "a.b", user), 0);
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "a.b\n");
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));

    sqlite_cli(mail_auth_db_path(), "DROP TRIGGER refuse;");
    const StepResult again = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", "secret"); });
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(sqlite_cli(mail_auth_db_path(), "SELECT name FROM users;"), "c\n");
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
}

TEST_F(ControlRenameMailnameTest, UnknownDomainAliasesFailTheAuthenticationStep) {
    crelm::qmail::SessionHooks hooks;
    hooks.domain_aliases = [](std::string_view, crelm::qmail::NameList&) { return -1; };
    crelm::qmail::set_qmail_session_hooks(hooks);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", "secret"); });
    EXPECT_EQ(step.status, -1);
    expect_reported(step.printed, "Unable to get domain aliases for domain example.test\n");
    EXPECT_EQ(read_file(home("c") + "/.qmail"), dot_qmail_renamed("a.b", "c"));
}

TEST_F(ControlRenameMailnameTest, ATakenHomePutsTheOldRecordBackAndEnds) {
    ASSERT_EQ(mkdir(home("c").c_str(), 0700), 0);
    const ProcessResult run = run_in_child([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Directory rename error: target directory " + home("c") +
                           " already exists.\nUnable to rename directory\n");
    std::vector<std::string> records{name_record(kDomain, "a.b", "a.b")};
    for (const std::string& name : names_) {
        if (name != "a.b")
            records.push_back(name_record(kDomain, name, name));
        records.push_back(name_record(kDomain, "alias-" + name, name));
    }
    EXPECT_EQ(read_file(kAssignPath), assign_of(records));
    EXPECT_EQ(read_file(home("a.b") + "/.qmail"), dot_qmail_of("a.b"));
}

// The mail name's record and its aliases' records change in one rewrite of
// assign, before the home is renamed: when the home is taken after all,
// exactly the records that rewrite changed point at the old home again, and
// the aliases' records that pointed at the taken home before stay as they
// were (the new name's own record goes, as the undone insertion's always
// did).
TEST_F(ControlRenameMailnameTest, ATakenHomeGivesBackTheAliasRecordsAndKeepsThoseOfTheHomeThatIsThere) {
    std::vector<std::string> records{name_record(kDomain, "c", "c"), name_record(kDomain, "alias-c", "c")};
    for (const std::string& name : names_) {
        records.push_back(name_record(kDomain, name, name));
        records.push_back(name_record(kDomain, "alias-" + name, name));
    }
    records.push_back(name_record(kDomain, "second-alias-a.b", "a.b"));
    write_file(kAssignPath, assign_of(records));
    ASSERT_EQ(mkdir(home("c").c_str(), 0700), 0);
    const ProcessResult run = run_in_child([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Directory rename error: target directory " + home("c") +
                           " already exists.\nUnable to rename directory\n");
    std::vector<std::string> expected{name_record(kDomain, "a.b", "a.b"), name_record(kDomain, "alias-c", "c")};
    for (const std::string& name : names_) {
        if (name != "a.b")
            expected.push_back(name_record(kDomain, name, name));
        expected.push_back(name_record(kDomain, "alias-" + name, name));
    }
    expected.push_back(name_record(kDomain, "second-alias-a.b", "a.b"));
    EXPECT_EQ(read_file(kAssignPath), assign_of(expected));
    EXPECT_EQ(entries_of("/var/qmail/users"), std::vector<std::string>{"assign"});
}

TEST_F(ControlRenameMailnameTest, AMissingOldRecordEndsTheProgram) {
    ASSERT_EQ(unlink(kAssignPath), 0);
    const ProcessResult run = run_in_child([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "Unable to remove record from assign file\n");
    EXPECT_TRUE(path_exists(home("a.b")));
}

TEST_F(ControlRenameMailnameTest, ANewRecordThatCannotBeWrittenPutsTheOldOneBackAndEnds) {
    const std::string before = read_file(kAssignPath);
    plant_foreign_lock_directory();
    const ProcessResult run = run_in_child([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(run.status, 1);
    // The rewrite that puts the new record in, then the one that puts the
    // old one back, each refused its lock.
    const std::string failure = "Error occurred while locking the file /var/qmail/users/assign";
    const std::size_t first = run.out.find(failure);
    ASSERT_NE(first, std::string::npos) << run.out;
    const std::size_t second = run.out.find(failure, first + 1);
    ASSERT_NE(second, std::string::npos) << run.out;
    EXPECT_EQ(run.out.find(failure, second + 1), std::string::npos) << run.out;
    const std::string tail = "Unable to add record to assign file\n";
    ASSERT_GE(run.out.size(), tail.size());
    EXPECT_EQ(run.out.substr(run.out.size() - tail.size()), tail) << run.out;
    EXPECT_EQ(run.out.find("Unable to remove record from assign file"), std::string::npos) << run.out;
    EXPECT_EQ(read_file(kAssignPath), before);
    EXPECT_TRUE(path_exists(home("a.b")));
    EXPECT_FALSE(path_exists(home("c")));
}

TEST_F(ControlRenameMailnameTest, ALinkPlantedAtDotQmailIsNotFollowed) {
    write_file("/tmp/elsewhere", "&a.b@example.test\n", 0644);
    ASSERT_EQ(unlink((home("a.b") + "/.qmail").c_str()), 0);
    ASSERT_EQ(symlink("/tmp/elsewhere", (home("a.b") + "/.qmail").c_str()), 0);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to open file " + home("c") +
                                      "/.qmail: Too many levels of symbolic links\n"
                                      "Unable to change mailname in dot-qmail in " + home("c") + "/.qmail\n");
    EXPECT_EQ(read_file("/tmp/elsewhere"), "&a.b@example.test\n");
    EXPECT_EQ(file_info("/tmp/elsewhere").uid, 0u);
    EXPECT_EQ(file_info(home("c") + "/.qmail").type, 'l');
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
    EXPECT_EQ(entries_of(home("c")), std::vector<std::string>{".qmail"});
}

TEST_F(ControlRenameMailnameTest, AFifoPlantedAtDotQmailIsNotRead) {
    ASSERT_EQ(unlink((home("a.b") + "/.qmail").c_str()), 0);
    ASSERT_EQ(mkfifo((home("a.b") + "/.qmail").c_str(), 0600), 0);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(step.status, 0);
    expect_reported(step.printed, "Unable to open file " + home("c") + "/.qmail: Invalid argument\n"
                                  "Unable to change mailname in dot-qmail in " + home("c") + "/.qmail\n");
    EXPECT_EQ(file_info(home("c") + "/.qmail").type, '?');
}

// A "/bin/sed" that would fail every edit is never run: the rename edits
// assign and ".qmail" itself.
TEST_F(ControlRenameMailnameTest, NoStreamEditorIsRun) {
    install_program("/bin/sed", "#!/bin/sh\nexit 127\n");
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(step.printed.out, "");
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
    EXPECT_EQ(read_file(home("c") + "/.qmail"), dot_qmail_renamed("a.b", "c"));
}

// A rename killed after its record was replaced, before the home moved: the
// same rename run again leaves the new record there once.
TEST_F(ControlRenameMailnameTest, ARenameRunAgainAfterAnInterruptedOneLeavesTheNewRecordOnce) {
    std::vector<std::string> records{name_record(kDomain, "c", "c")};
    for (const std::string& other : names_) {
        if (other != "a.b")
            records.push_back(name_record(kDomain, other, other));
        records.push_back(name_record(kDomain, "alias-" + other, other));
    }
    write_file(kAssignPath, assign_of(records));
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
    EXPECT_TRUE(std::filesystem::is_directory(home("c")));
    EXPECT_FALSE(std::filesystem::exists(home("a.b")));
}

}  // namespace
}  // namespace sorvane::test

namespace sorvane::test {
namespace {

// A rename killed between making a copy of assign or ".qmail" and renaming
// it over the file leaves the copy: the next edit of that file removes it,
// and nothing that merely looks like one.
TEST_F(ControlRenameMailnameTest, CopiesLeftByAnInterruptedRenameAreRemovedByTheNextOne) {
    write_file("/var/qmail/users/assign.tmp.Ab12Cd", "=half");
    write_file(home("a.b") + "/.qmail.mail.Xy34Zw", "&a.b@exa");
    for (const char* kept : {"assign.tmp.short", "assign.tmp.Ab12Cd7", "assignx.tmp.Ab12Cd", "assign.mail.Ab12Cd"})
        write_file(std::string("/var/qmail/users/") + kept, "kept\n");
    ASSERT_EQ(symlink("/var/qmail/users/assign", (home("a.b") + "/.qmail.mail.Link01").c_str()), 0);
    const StepResult step = run_step([] { return qmail_rename_mailname("a.b", "example.test", "c", ""); });
    EXPECT_EQ(step.status, 0);
    EXPECT_EQ(read_file(kAssignPath), assign_after("a.b", "c"));
    EXPECT_EQ(entries_of("/var/qmail/users"),
              (std::vector<std::string>{"assign", "assign.mail.Ab12Cd", "assign.tmp.Ab12Cd7", "assign.tmp.short",
                                        "assignx.tmp.Ab12Cd"}));
    EXPECT_EQ(entries_of(home("c")), std::vector<std::string>{".qmail"});
}

}  // namespace
}  // namespace sorvane::test
