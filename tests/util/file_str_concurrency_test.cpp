// The locked line editor under heavy concurrency: eight processes add and
// remove lines of one file at once while a reader keeps looking at it.
#include "util/file_str.h"

#include "support/sandbox.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

using sorvane::test::path_exists;
using sorvane::test::read_file;
using sorvane::test::write_file;

constexpr int kWorkers = 8;
constexpr int kOperations = 500;  // per worker: an add and a removal per line number
constexpr int kLinesPerWorker = kOperations / 2;
const std::string kSentinel = "sentinel";

std::string line_of(int worker, int number) {
    return "w" + std::to_string(worker) + "-" + std::to_string(number);
}

// Odd-numbered lines stay; even ones are removed again, half of them by
// exact comparison and half by a pattern holding the whole line.
bool stays(int number) {
    return number % 2 == 1;
}

// One add and one removal per line number, so that the file is rewritten on
// every operation: a line that stays is followed by the removal of a line
// that is not there.
int edit_line(const std::string& path, int worker, int number) {
    const std::string line = line_of(worker, number);
    const LinePosition where = number % 3 == 0 ? LinePosition::start : LinePosition::end;
    int failures = file_str_one(path, line, LineAction::add, where) != 0;
    if (stays(number))
        failures += file_str_one(path, line_of(worker, -1), LineAction::remove_exact, LinePosition::start) != 0;
    else if (number % 4 == 0)
        failures += file_str_one(path, line, LineAction::remove_exact, LinePosition::start) != 0;
    else
        failures += file_str_one(path, line + "\n", LineAction::remove_pattern, LinePosition::start) != 0;
    return failures;
}

// A forked worker: waits until the start pipe closes, so that all begin
// together, then reports the number of failed calls as its exit status.
[[noreturn]] void work(const std::string& path, int worker, int start_fd, const std::string& err_path) {
    if (std::freopen(err_path.c_str(), "w", stderr) == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr)
        _exit(127);
    char byte = 0;
    while (::read(start_fd, &byte, 1) < 0 && errno == EINTR) {
    }
    int failures = 0;
    for (int number = 0; number < kLinesPerWorker; ++number)
        failures += edit_line(path, worker, number);
    std::fflush(stderr);
    _exit(std::min(failures, 120));
}

// What the reader may see: the whole file, made of whole known lines (but for
// an append in progress at its end), the sentinel among them. Empty when it is so; otherwise what was wrong.
std::string fault_in(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::string("open failed: ") + std::strerror(errno);
    std::string content;
    char buffer[65536];
    ssize_t got = 0;
    while ((got = ::read(fd, buffer, sizeof buffer)) > 0)
        content.append(buffer, static_cast<std::size_t>(got));
    ::close(fd);
    if (got < 0)
        return "read failed";
    if (content.empty())
        return "empty";
    // A line added at the end is appended in place, so a reader may catch an
    // append in progress: the unfinished tail must be the start of a worker's
    // line, and everything before it whole.
    if (content.back() != '\n') {
        const std::size_t tail = content.rfind('\n') + 1;
        const std::string piece = content.substr(tail);
        if (piece[0] != 'w' || piece.find_first_not_of("w0123456789-") != std::string::npos)
            return "not whole lines: [" + content + "]";
        content.erase(tail);
    }
    if (content.find("\n" + kSentinel + "\n") == std::string::npos && content.rfind(kSentinel + "\n", 0) != 0)
        return "sentinel missing: [" + content + "]";
    std::size_t start = 0;
    for (std::size_t end = content.find('\n'); end != std::string::npos; end = content.find('\n', start)) {
        const std::string line = content.substr(start, end - start);
        if (line != kSentinel && (line.size() < 3 || line[0] != 'w' || line.find('-') == std::string::npos))
            return "torn line [" + line + "]";
        start = end + 1;
    }
    return "";
}

std::vector<std::string> lines_of(const std::string& content) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = content.find('\n'); end != std::string::npos; end = content.find('\n', start)) {
        lines.push_back(content.substr(start, end - start));
        start = end + 1;
    }
    if (start < content.size())
        lines.push_back(content.substr(start));
    return lines;
}

std::vector<std::string> expected_lines() {
    std::vector<std::string> lines{kSentinel};
    for (int worker = 0; worker < kWorkers; ++worker)
        for (int number = 0; number < kLinesPerWorker; ++number)
            if (stays(number))
                lines.push_back(line_of(worker, number));
    std::sort(lines.begin(), lines.end());
    return lines;
}

class FileStrConcurrencyTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        umask(022);
        dir_ = sorvane::test::scratch_dir();
        path_ = dir_ + "/assign";
    }

    void start_workers() {
        int start[2];
        ASSERT_EQ(::pipe2(start, O_CLOEXEC), 0);
        std::fflush(stdout);
        std::fflush(stderr);
        for (int worker = 0; worker < kWorkers; ++worker) {
            const pid_t pid = ::fork();
            ASSERT_GE(pid, 0) << std::strerror(errno);
            if (pid == 0) {
                ::close(start[1]);
                work(path_, worker, start[0], err_path(worker));
            }
            workers_.push_back(pid);
        }
        ::close(start[0]);
        ::close(start[1]);
    }

    std::string err_path(int worker) const { return dir_ + "/worker-" + std::to_string(worker) + ".err"; }

    // Reads the file over and over until every worker has ended; collects
    // the workers' statuses and the first fault the reader saw.
    void read_while_workers_run() {
        std::size_t running = workers_.size();
        while (running > 0) {
            const std::string fault = fault_in(path_);
            if (!fault.empty() && first_fault_.empty())
                first_fault_ = fault;
            ++reads_;
            int status = 0;
            pid_t ended = 0;
            while (running > 0 && (ended = ::waitpid(-1, &status, WNOHANG)) > 0) {
                statuses_.push_back(status);
                --running;
            }
            ASSERT_GE(ended, 0) << std::strerror(errno);
        }
    }

    std::string dir_;
    std::string path_;
    std::vector<pid_t> workers_;
    std::vector<int> statuses_;
    std::string first_fault_;
    long reads_ = 0;
};

TEST_F(FileStrConcurrencyTest, EightProcessesLeaveExactlyTheLinesThatStayAndTheReaderNeverSeesAPartialFile) {
    write_file(path_, kSentinel + "\n", 0640);
    ASSERT_EQ(::chown(path_.c_str(), sorvane::test::popuser_uid(), sorvane::test::popuser_gid()), 0);
    start_workers();
    read_while_workers_run();

    ASSERT_EQ(statuses_.size(), static_cast<std::size_t>(kWorkers));
    for (const int status : statuses_)
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
    for (int worker = 0; worker < kWorkers; ++worker)
        EXPECT_EQ(read_file(err_path(worker)), "") << "worker " << worker;
    EXPECT_EQ(first_fault_, "") << "after " << reads_ << " reads";
    EXPECT_GT(reads_, 0);

    std::vector<std::string> lines = lines_of(read_file(path_));
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, expected_lines());
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size()) << "a line appears twice";
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});

    const sorvane::test::FileInfo info = sorvane::test::file_info(path_);
    EXPECT_EQ(info.uid, sorvane::test::popuser_uid());
    EXPECT_EQ(info.gid, sorvane::test::popuser_gid());
    EXPECT_EQ(info.mode, 0640U);
}

}  // namespace
