// A batch edits the control files and assign in memory and writes each of
// them once, after its last command: watched from outside, each file the
// batch changed is replaced once, whatever number of commands changed it.
// Where the system refuses the batch its private mounts it edits in place,
// command by command, with the same result; and when the one write of a
// file fails, every command that changed that file says so and ends 1.
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

#include "batch/batch_support.h"
#include "e2e/server_state.h"
#include "runtime/md5_hex.h"
#include "util/file_lock.h"

namespace sorvane::test {
namespace {

class BatchStagingTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        seed_server_state();
    }
};

// The renames onto each name (IN_MOVED_TO) and the writes into each name
// (IN_MODIFY) in the watched directories, from the moment it is made.
class DirectoryWatch {
public:
    explicit DirectoryWatch(const std::vector<std::string>& directories)
        : fd_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        EXPECT_GE(fd_, 0) << std::strerror(errno);
        for (const std::string& directory : directories)
            EXPECT_GE(::inotify_add_watch(fd_, directory.c_str(), IN_MOVED_TO | IN_MODIFY), 0) << directory;
    }
    ~DirectoryWatch() { ::close(fd_); }
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    struct Counts {
        int renamed_onto = 0;
        int written = 0;
    };

    // Reads every event queued so far.
    std::map<std::string, Counts> counts() {
        alignas(inotify_event) char buffer[1 << 16];
        for (;;) {
            const ssize_t got = ::read(fd_, buffer, sizeof buffer);
            if (got <= 0)
                break;
            for (char* at = buffer; at < buffer + got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                if (event->len > 0) {
                    Counts& counts = counts_[event->name];
                    counts.renamed_onto += (event->mask & IN_MOVED_TO) != 0;
                    counts.written += (event->mask & IN_MODIFY) != 0;
                }
                at += sizeof(inotify_event) + event->len;
            }
        }
        return counts_;
    }

private:
    int fd_;
    std::map<std::string, Counts> counts_;
};

std::vector<BatchEntry> editing_entries() {
    return {
        {{"--add-domain", "--domain-name=fresh.test"}, {}, {}, {}},
        {{"--add-mailname", "--domain-name=" + kDomain, "--mailname=one"}, {}, {}, seeded_document()},
        {{"--get-mailbox-size", "--domain-name=" + kDomain, "--mailname=info"}, {}, {}, {}},
        {{"--add-mailname", "--domain-name=" + kDomain, "--mailname=two"}, {}, {}, seeded_document()},
        {{"--add-mailname", "--domain-name=" + kDomain, "--mailname=three"}, {}, {}, seeded_document()},
    };
}

const std::vector<std::string> kWatched = {"/var/qmail/users", "/var/qmail/control"};

TEST_F(BatchStagingTest, EachFileTheBatchChangesIsReplacedOnceAfterItsLastCommand) {
    DirectoryWatch watch(kWatched);
    const ProcessResult batch = run_batch(batch_document(editing_entries()));
    EXPECT_EQ(batch.status, 0) << batch.out << batch.err;
    EXPECT_EQ(batch.err, "");
    std::map<std::string, DirectoryWatch::Counts> counts = watch.counts();
    for (const std::string name : {"assign", "rcpthosts", "virtualdomains"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(counts[name].renamed_onto, 1);
        EXPECT_EQ(counts[name].written, 0);
    }
    EXPECT_NE(read_file("/var/qmail/users/assign").find("\n=" + kDomain + "-one:"), std::string::npos);
    EXPECT_NE(read_file("/var/qmail/control/rcpthosts").find("fresh.test\n"), std::string::npos);
    // Nothing of the batch's is left beside the files.
    EXPECT_EQ(temporaries_beside("/var/qmail/users/assign"), std::vector<std::string>{});
    EXPECT_EQ(temporaries_beside("/var/qmail/control/rcpthosts"), std::vector<std::string>{});
}

TEST_F(BatchStagingTest, SingleCommandsReplaceAssignOnceEach) {
    DirectoryWatch watch(kWatched);
    for (const BatchEntry& entry : editing_entries())
        EXPECT_EQ(run_entry(entry).status, 0);
    EXPECT_EQ(watch.counts()["assign"].renamed_onto, 4) << "the batch's saving is measured against this";
}

ProcessResult run_batch_without_mounts(const std::string& document) {
    RunOptions run;
    run.stdin_mode = RunOptions::Stdin::Pipe;
    run.input = document;
    return run_process({"/usr/bin/setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin", sorvane_path(),
                        "--batch"},
                       run);
}

TEST_F(BatchStagingTest, WithoutThePrivilegeToMountTheBatchEditsInPlaceWithTheSameResult) {
    const ProcessResult staged = run_batch(batch_document(editing_entries()));
    const ServerState after_staged = read_server_state();
    reset_sandbox();
    seed_server_state();
    DirectoryWatch watch(kWatched);
    const ProcessResult in_place = run_batch_without_mounts(batch_document(editing_entries()));
    EXPECT_EQ(in_place.status, 0) << in_place.out << in_place.err;
    EXPECT_EQ(in_place.err, "");
    EXPECT_EQ(watch.counts()["assign"].renamed_onto, 4) << "each command wrote assign itself";
    EXPECT_EQ(without_pids(in_place.out), without_pids(staged.out));
    expect_server_state(read_server_state(), after_staged);
}

// /var/qmail/users made read-only for the test's time: the batch's copy
// can be edited, its one write cannot.
class ReadOnlyDirectory {
public:
    explicit ReadOnlyDirectory(std::string path) : path_(std::move(path)) {
        EXPECT_EQ(::mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr), 0) << std::strerror(errno);
        EXPECT_EQ(::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
            << std::strerror(errno);
    }
    ~ReadOnlyDirectory() { ::umount2(path_.c_str(), MNT_DETACH); }
    ReadOnlyDirectory(const ReadOnlyDirectory&) = delete;
    ReadOnlyDirectory& operator=(const ReadOnlyDirectory&) = delete;

private:
    std::string path_;
};

TEST_F(BatchStagingTest, AFailedWriteOfAFileFailsEveryCommandThatChangedIt) {
    const std::string assign_before = read_file("/var/qmail/users/assign");
    ProcessResult batch;
    {
        const ReadOnlyDirectory read_only("/var/qmail/users");
        batch = run_batch(batch_document(editing_entries()));
    }
    EXPECT_EQ(batch.status, 1);
    EXPECT_EQ(batch.err, "");
    const std::vector<OutputObject> objects = read_output_objects(batch.out);
    ASSERT_EQ(objects.size(), 5u);
    // After the shared qmail-newu's own failure on the same directory.
    const std::string message =
        "Unable to open file /var/qmail/users/assign.tmp: Read-only file system\n\n"
        "System error 30: Read-only file system\n";
    for (const std::size_t changed : {0u, 1u, 3u, 4u}) {
        SCOPED_TRACE(changed);
        EXPECT_EQ(objects[changed].status, 1);
        EXPECT_TRUE(objects[changed].err.ends_with(message)) << objects[changed].err;
    }
    EXPECT_EQ(objects[2].status, 0);
    EXPECT_EQ(objects[2].err, "");
    // assign is as it was; the control files, which could be written, were.
    EXPECT_EQ(read_file("/var/qmail/users/assign"), assign_before);
    EXPECT_NE(read_file("/var/qmail/control/rcpthosts").find("fresh.test\n"), std::string::npos);
    EXPECT_EQ(fake_calls("qmail-newu").size(), 1u);
}

// Starts sorvane with args in the background, standard input reading
// input, standard output and error into the file out.
pid_t start_sorvane(const std::vector<std::string>& args, const std::string& input, const std::string& out) {
    int feed[2];
    EXPECT_EQ(::pipe(feed), 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int output = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(feed[0], 0);
        ::dup2(output, 1);
        ::dup2(output, 2);
        ::close(feed[1]);
        std::vector<char*> argv;
        const std::string path = sorvane_path();
        argv.push_back(const_cast<char*>(path.c_str()));
        for (const std::string& arg : args)
            argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        ::execv(path.c_str(), argv.data());
        ::_exit(127);
    }
    ::close(feed[0]);
    EXPECT_EQ(::write(feed[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    ::close(feed[1]);
    return pid;
}

int exit_status_of(pid_t pid) {
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Whether any process waits for the flock of lock_file.
bool someone_waits_for(const std::string& lock_file) {
    struct stat info {};
    if (::stat(lock_file.c_str(), &info) != 0)
        return false;
    const std::string inode = ":" + std::to_string(info.st_ino) + " ";
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
        if (line.find("-> FLOCK") != std::string::npos && line.find(inode) != std::string::npos)
            return true;
    return false;
}

// The batch is held half way (its second command waits for a lock the test
// holds): the real assign is still as before, no mount of the batch's shows
// outside it, and another panel's command that edits assign waits for the
// batch; once the batch ends, that command runs on what the batch wrote.
TEST_F(BatchStagingTest, HalfWayTheRealFilesAreUntouchedAndAnotherPanelWaitsForTheBatch) {
    const std::string assign_before = read_file("/var/qmail/users/assign");
    const std::string mounts_before = read_file("/proc/self/mountinfo");
    FileLock gate = lock_file("/var/qmail/mailnames/" + kDomain + "/one/.qmail", LockPlace::lock_directory);
    ASSERT_TRUE(gate.held());
    const std::string document = batch_document({
        {{"--add-mailname", "--domain-name=" + kDomain, "--mailname=one"}, {}, {}, seeded_document()},
        {{"--add-mailbox", "--domain-name=" + kDomain, "--mailname=one"}, "secret-one", {}, seeded_document()},
    });
    const pid_t batch = start_sorvane({"--batch"}, document, "/tmp/batch-output");
    while (!someone_waits_for(gate.path()))
        ASSERT_EQ(::waitpid(batch, nullptr, WNOHANG), 0) << read_file("/tmp/batch-output");
    EXPECT_EQ(read_file("/var/qmail/users/assign"), assign_before);
    EXPECT_EQ(read_file("/proc/self/mountinfo"), mounts_before);
    const pid_t single = start_sorvane({"--add-domain", "--domain-name=other.test"}, "", "/tmp/single-output");
    const std::string assign_lock = "/run/sorvane/locks/" + md5_hex("/var/qmail/users/assign");
    while (!waits_for_flock(single, assign_lock))
        ASSERT_EQ(::waitpid(single, nullptr, WNOHANG), 0) << read_file("/tmp/single-output");
    ASSERT_EQ(gate.release(), 0);
    EXPECT_EQ(exit_status_of(batch), 0) << read_file("/tmp/batch-output");
    EXPECT_EQ(exit_status_of(single), 0) << read_file("/tmp/single-output");
    const std::string assign = read_file("/var/qmail/users/assign");
    EXPECT_NE(assign.find("\n=" + kDomain + "-one:"), std::string::npos) << assign;
    EXPECT_EQ(assign.rfind("+other.test", 0), 0u) << "the other panel's record went on top of the batch's table";
    for (const OutputObject& object : read_output_objects(read_file("/tmp/batch-output")))
        EXPECT_EQ(object.status, 0) << object.err;
}

}  // namespace
}  // namespace sorvane::test
