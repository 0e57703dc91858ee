// Several processes adding, or removing, mail names of one domain at the
// same time, each rebuilding the compiled table after every step: no
// record lost or doubled, "." always last, and never two qmail-newu runs at
// once.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "qmail/control_files.h"
#include "qmail/control_test_support.h"
#include "qmail/mailname_files.h"

extern char** environ;

namespace sorvane::test {
namespace {

constexpr int kWorkers = 8;
constexpr int kNamesPerWorker = 50;
// Each worker rebuilds the table after every fifth name.
constexpr int kNewuRunsPerWorker = kNamesPerWorker / 5;
const std::string kFakes = "/tmp/.sandbox/fakes";

// The stand-in qmail-newu writes a line when it starts and one when it ends,
// the latter with the last line of assign as it found it: two starts in a
// row mean two runs at once. It runs no more programs than it must, since
// the runs queue up behind each other.
const std::string kNewuRuns = kFakes + "/newu-runs";
const std::string kNewuWatch = R"SH(#!/bin/sh
echo "start $$" >> /tmp/.sandbox/fakes/newu-runs
last=$(tail -n 1 /var/qmail/users/assign)
echo "end $$ $last" >> /tmp/.sandbox/fakes/newu-runs
)SH";

// Each run's lines, checked: every start directly followed by its own end,
// which saw "." last. Returns the number of runs.
std::size_t checked_newu_runs() {
    std::istringstream in(read_file(kNewuRuns));
    std::size_t runs = 0;
    for (std::string start, end; std::getline(in, start) && std::getline(in, end); ++runs) {
        const std::string pid = start.substr(start.find(' ') + 1);
        EXPECT_EQ(start, "start " + pid) << "run " << runs;
        EXPECT_EQ(end, "end " + pid + " .") << "run " << runs << " (overlapping runs, or \".\" not last)";
    }
    return runs;
}

// The workers asked for kWorkers * kNewuRunsPerWorker rebuilds; a request
// whose edits a completed rebuild already covered shares that rebuild, so
// there are at most that many runs, one at a time, and at least one.
void expect_shared_newu_runs() {
    const std::size_t runs = checked_newu_runs();
    EXPECT_GE(runs, 1u);
    EXPECT_LE(runs, static_cast<std::size_t>(kWorkers * kNewuRunsPerWorker));
}

struct Worker {
    pid_t pid = -1;
    std::string err_path;
};

Worker start_worker(const std::string& action, int number) {
    Worker worker;
    worker.err_path = scratch_dir() + "/worker-" + action + "-" + std::to_string(number);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, worker.err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0644);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string program = test_program_path("mailname_records_worker");
    const std::string prefix = "w" + std::to_string(number) + ".n";
    std::vector<std::string> args{program, action, "example.test", prefix, std::to_string(kNamesPerWorker)};
    std::vector<char*> argv;
    for (std::string& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&worker.pid, program.c_str(), &files, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&files);
    return worker;
}

void run_workers(const std::string& action) {
    std::vector<Worker> workers;
    for (int number = 0; number < kWorkers; ++number)
        workers.push_back(start_worker(action, number));
    for (const Worker& worker : workers) {
        int status = 0;
        ASSERT_EQ(waitpid(worker.pid, &status, 0), worker.pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << read_file(worker.err_path);
    }
}

std::vector<std::string> assign_lines() {
    std::istringstream in(read_file(kAssignPath));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class ControlConcurrencyTest : public ControlFilesTest {
protected:
    void SetUp() override {
        ControlFilesTest::SetUp();
        ASSERT_EQ(qmail_add_domain("example.test", false), 0);
        install_program("/var/qmail/bin/qmail-newu", kNewuWatch);
    }
};

std::string worker_name(int worker, int i) {
    return "w" + std::to_string(worker) + ".n" + std::to_string(i);
}

TEST_F(ControlConcurrencyTest, EightProcessesAddFiftyMailNamesEach) {
    run_workers("add");
    std::vector<std::string> lines = assign_lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), ".");
    lines.pop_back();
    std::set<std::string> expected{plus_record("example.test")};
    for (int worker = 0; worker < kWorkers; ++worker) {
        for (int i = 0; i < kNamesPerWorker; ++i) {
            const std::string name = worker_name(worker, i);
            expected.insert(name_record("example.test", name, name));
            EXPECT_TRUE(path_exists("/var/qmail/mailnames/example.test/" + name + "/.qmail")) << name;
        }
    }
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), expected);
    EXPECT_EQ(lines.back(), plus_record("example.test"));
    expect_shared_newu_runs();
    EXPECT_EQ(list_tree("/var/qmail/users"), std::vector<std::string>{"assign"});
}

TEST_F(ControlConcurrencyTest, EightProcessesRemoveFiftyMailNamesEach) {
    for (int worker = 0; worker < kWorkers; ++worker)
        for (int i = 0; i < kNamesPerWorker; ++i)
            ASSERT_EQ(create_mailname(worker_name(worker, i), "example.test"), 0);
    ASSERT_EQ(assign_lines().size(), static_cast<std::size_t>(kWorkers * kNamesPerWorker + 2));
    run_workers("remove");
    EXPECT_EQ(read_file(kAssignPath), assign_of({plus_record("example.test")}));
    EXPECT_EQ(list_tree("/var/qmail/mailnames/example.test"), std::vector<std::string>{});
    expect_shared_newu_runs();
    EXPECT_EQ(list_tree("/var/qmail/users"), std::vector<std::string>{"assign"});
}

}  // namespace
}  // namespace sorvane::test
