// A batch edits the control files and assign in memory and writes each of
// them once, after its last command: watched from outside, each file the
// batch changed is replaced once, whatever number of commands changed it.
// Where the system refuses the batch its private mounts it edits in place,
// command by command, with the same result; and when the one write of a
// file fails, every command that changed that file says so and ends 1.
#include <sys/inotify.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "batch/batch_support.h"
#include "e2e/server_state.h"

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

}  // namespace
}  // namespace sorvane::test
