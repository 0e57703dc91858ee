// Panels share rebuilds of the compiled user assignment table: a command
// whose edit is already covered by a rebuild that began after it takes that
// rebuild's result instead of running another, and a failed rebuild fails
// every command it covered.
#include "e2e/domain_test_support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>


#include "runtime/md5_hex.h"

namespace sorvane::test {
namespace {

const std::string kDomain = "new.example";
const std::string kGate = "/tmp/newu-gate";

class SharedRebuildsTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_empty_server();
        ASSERT_EQ(run_sorvane({"--add-domain", "--domain-name=" + kDomain}).status, 0);
        // From now on each rebuild waits at the gate (a FIFO) until the test
        // opens it, for as long as the gate is there.
        ASSERT_EQ(mkfifo(kGate.c_str(), 0600), 0);
        install_fake("/var/qmail/bin/qmail-newu", "if [ -p " + kGate + " ]; then read line < " + kGate + "; fi");
    }
};

// Starts the real sorvane adding the mail name in the background.
pid_t start_adding(const std::string& mailname) {
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
        const std::string path = sorvane_path();
        const std::string domain = "--domain-name=" + kDomain;
        const std::string name = "--mailname=" + mailname;
        execl(path.c_str(), path.c_str(), "--add-mailname", domain.c_str(), name.c_str(), nullptr);
        _exit(127);
    }
    return pid;
}

int exit_status_of(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// True once pid waits for its turn to rebuild.
bool waits_for_rebuild_lock(pid_t pid) {
    return waits_for_flock(pid, "/run/sorvane/locks/" + md5_hex("/var/qmail/bin/qmail-newu"));
}

// One command's rebuild held at the gate, three more commands queued
// behind it, then the gate opened (and taken away): the first rebuild
// covers the first command only, the next one covers the other three.
struct Round {
    std::vector<int> statuses;
    std::size_t rebuilds = 0;
};

Round run_round() {
    const std::size_t before = fake_calls("qmail-newu").size();
    std::vector<pid_t> pids{start_adding("first")};
    while (fake_calls("qmail-newu").size() == before)
        EXPECT_EQ(waitpid(pids.front(), nullptr, WNOHANG), 0) << "the first command ended before its rebuild";
    for (const std::string name : {"second", "third", "fourth"}) {
        pids.push_back(start_adding(name));
        while (!waits_for_rebuild_lock(pids.back()))
            EXPECT_EQ(waitpid(pids.back(), nullptr, WNOHANG), 0) << name << " ended without waiting for its turn";
    }
    const int gate = open(kGate.c_str(), O_WRONLY);
    EXPECT_GE(gate, 0);
    EXPECT_EQ(unlink(kGate.c_str()), 0);
    EXPECT_EQ(write(gate, "go\n", 3), 3);
    close(gate);
    Round round;
    for (const pid_t pid : pids)
        round.statuses.push_back(exit_status_of(pid));
    round.rebuilds = fake_calls("qmail-newu").size() - before;
    return round;
}

TEST_F(SharedRebuildsTest, CommandsQueuedBehindARebuildShareTheNextOne) {
    const Round round = run_round();
    EXPECT_EQ(round.statuses, (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(round.rebuilds, 2u);
    const std::string assign = read_file("/var/qmail/users/assign");
    for (const std::string name : {"first", "second", "third", "fourth"})
        EXPECT_NE(assign.find("=" + kDomain + "-" + name + ":"), std::string::npos) << name;
}

// A failed rebuild is the result of every command it covered.
TEST_F(SharedRebuildsTest, AFailedRebuildFailsEveryCommandWaitingOnIt) {
    set_fake_status("qmail-newu", 111);
    const Round round = run_round();
    EXPECT_EQ(round.statuses, (std::vector<int>{1, 1, 1, 1}));
    EXPECT_EQ(round.rebuilds, 2u);
}

// One after another, every command still runs a rebuild of its own.
TEST_F(SharedRebuildsTest, CommandsOneAfterAnotherEachRebuild) {
    ASSERT_EQ(unlink(kGate.c_str()), 0);
    for (const std::string name : {"one", "two", "three"})
        EXPECT_EQ(run_sorvane({"--add-mailname", "--domain-name=" + kDomain, "--mailname=" + name}).status, 0);
    EXPECT_EQ(fake_calls("qmail-newu").size(), 4u);
    set_fake_status("qmail-newu", 111);
    EXPECT_EQ(run_sorvane({"--add-mailname", "--domain-name=" + kDomain, "--mailname=four"}).status, 1);
    set_fake_status("qmail-newu", 0);
    EXPECT_EQ(run_sorvane({"--add-mailname", "--domain-name=" + kDomain, "--mailname=five"}).status, 0);
    EXPECT_EQ(fake_calls("qmail-newu").size(), 6u);
}

}  // namespace
}  // namespace sorvane::test
