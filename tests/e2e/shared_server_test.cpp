// Beside other panels and local users: control files that another tool left
// without a final newline, a lock directory that is not root's alone, and
// lock files that no local user can open.
#include "e2e/domain_test_support.h"
#include "e2e/tree_snapshot.h"

#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

const std::string kNew = "new.example";
const std::string kRcptHosts = "/var/qmail/control/rcpthosts";
const std::string kVirtualDomains = "/var/qmail/control/virtualdomains";
const std::string kRejectNonExist = "/var/qmail/control/rejectnonexist";
const std::string kAssign = "/var/qmail/users/assign";

class SharedServerTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_empty_server();
    }
};

ProcessResult as_local_user(const std::string& script, const std::vector<std::string>& args = {}) {
    std::vector<std::string> argv{"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                  "/bin/sh",          "-c",            script,          "user"};
    argv.insert(argv.end(), args.begin(), args.end());
    return run_process(argv);
}

// Another tool wrote the last line without its newline: the next line goes
// on a line of its own instead of being glued to it ("x.testnew.example"),
// and both domains keep working.
TEST_F(SharedServerTest, ControlFilesWithoutAFinalNewlineGetTheNextLineOnItsOwn) {
    write_file(kRcptHosts, "x.test", 0644);
    write_file(kVirtualDomains, "x.test:x.test", 0644);
    EXPECT_EQ(run_sorvane({"--add-domain", "--domain-name=" + kNew}).status, 0);
    EXPECT_EQ(read_file(kRcptHosts), "x.test\n" + kNew + "\n");
    EXPECT_EQ(read_file(kVirtualDomains), "x.test:x.test\n" + kNew + ":" + kNew + "\n");

    write_file(kRejectNonExist, "y.test", 0644);
    const ProcessResult off = run_sorvane_with_input({"--turn-off-domain", "--domain-name=" + kNew, "--wait-stdin"},
                                                     R"({"domain": {"name": "new.example", "mails": []}})");
    EXPECT_EQ(off.status, 0) << off.err;
    EXPECT_EQ(read_file(kRejectNonExist), "y.test\n" + kNew + "\n");
    EXPECT_EQ(read_file(kRcptHosts), "x.test\n");
}

// A lock directory that another user made (a local user where the system
// lets anyone create it, or a planted link) is never used and never waited
// on: the command fails at once with a message, changes nothing, and
// creates nothing in the directory that user controls.
TEST_F(SharedServerTest, ALockDirectoryAnotherUserMadeFailsTheCommandAndChangesNothing) {
    ASSERT_EQ(chmod("/run", 01777), 0);
    const ProcessResult made = as_local_user("mkdir /run/sorvane && mkdir /run/sorvane/locks");
    ASSERT_EQ(made.status, 0) << made.err;
    const auto before = snapshot_system_trees();
    const ProcessResult run = run_sorvane({"--add-domain", "--domain-name=" + kNew});
    const std::string refused =
        "Lock directory /run/sorvane refused: it is not owned by root\n\nSystem error 13: Permission denied\n";
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, refused);
    EXPECT_EQ(run.out, refused);
    EXPECT_EQ(snapshot_system_trees(), before);
    EXPECT_EQ(list_tree("/run/sorvane"), std::vector<std::string>{"locks/"});
}

TEST_F(SharedServerTest, ALinkAtTheLockDirectoryFailsTheCommandAndIsNotFollowed) {
    ASSERT_EQ(chmod("/run", 01777), 0);
    const ProcessResult made = as_local_user("mkdir /tmp/mine && ln -s /tmp/mine /run/sorvane");
    ASSERT_EQ(made.status, 0) << made.err;
    const auto before = snapshot_system_trees();
    const ProcessResult run = run_sorvane({"--add-domain", "--domain-name=" + kNew});
    const std::string refused =
        "Lock directory /run/sorvane refused: it is a symbolic link\n\nSystem error 13: Permission denied\n";
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, refused);
    EXPECT_EQ(run.out, refused);
    EXPECT_EQ(snapshot_system_trees(), before);
    EXPECT_TRUE(list_tree("/tmp/mine").empty());
}

// After a domain and a mail name were added, a local user can open none of
// the lock files the commands used (holding any descriptor of one would be
// enough to freeze every later command), nor add anything beside them.
TEST_F(SharedServerTest, NoLockFileCanBeOpenedByALocalUser) {
    ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=" + kNew}).status, 0);
    ASSERT_EQ(run_sorvane({"--add-mailname", "--domain-name=" + kNew, "--mailname=info"}).status, 0);
    std::vector<std::string> locks;
    for (const std::string& name : list_tree("/run/sorvane/locks")) {
        locks.push_back("/run/sorvane/locks/" + name);
        EXPECT_EQ(file_info(locks.back()).mode, 0600u) << name;
        EXPECT_EQ(file_info(locks.back()).uid, 0u) << name;
    }
    ASSERT_GE(locks.size(), 4u);
    const ProcessResult tried = as_local_user(
        "for f; do (exec 3<\"$f\") 2>/dev/null && exit 1; flock -n \"$f\" true 2>/dev/null && exit 2; done\n"
        "(: > /run/sorvane/locks/planted) 2>/dev/null && exit 3\n"
        "mkdir /run/sorvane/planted 2>/dev/null && exit 4\n"
        "exit 0\n",
        locks);
    EXPECT_EQ(tried.status, 0) << tried.err;
    EXPECT_EQ(file_info("/run/sorvane").mode, 0700u);
    EXPECT_EQ(file_info("/run/sorvane/locks").mode, 0700u);
    const ProcessResult removed = run_sorvane_with_input({"--remove-domain", "--domain-name=" + kNew, "--wait-stdin"},
                                                         R"({"domain": {"name": "new.example", "mails": []}})");
    EXPECT_EQ(removed.status, 0) << removed.err;
}

}  // namespace
}  // namespace sorvane::test
