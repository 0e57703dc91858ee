// Helpers for the store tests: the log as the tests see it, an independent
// look into databases through the sqlite3 program, descriptor counts, and a
// second process that holds a database locked.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "runtime/log.h"
#include "support/logging_test.h"
#include "support/sandbox.h"

namespace sorvane::test {

// A logging test whose logged() gives the syslog records as
// "<priority> <text>" (priority 0-7, e.g. "3 Unable to ...").
class LoggedStoreTest : public LoggingTest {
protected:
    std::vector<std::string> logged() {
        std::vector<std::string> lines;
        for (const std::string& record : syslog_capture().records()) {
            const int priority = std::atoi(record.c_str() + 1) & 7;
            const auto text = record.find("]: ");
            lines.push_back(std::to_string(priority) + " " +
                            (text == std::string::npos ? record : record.substr(text + 3)));
        }
        return lines;
    }
};

// Runs sql on db with the sqlite3 program and returns its output ("a|b\n" per
// row); fails the test when sqlite3 fails.
inline std::string sqlite_cli(const std::string& db, const std::string& sql) {
    const ProcessResult result = run_process({"/usr/bin/sqlite3", "-batch", db, sql});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

// The number of this process's descriptors open on path.
inline int descriptors_open_on(const std::string& path) {
    int count = 0;
    DIR* fds = opendir("/proc/self/fd");
    if (fds == nullptr)
        return -1;
    while (const dirent* entry = readdir(fds)) {
        char target[4096];
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
        if (length > 0 && std::string(target, static_cast<std::size_t>(length)) == path)
            ++count;
    }
    closedir(fds);
    return count;
}

// The fifo through which a DatabaseHolder's script tells that it is ready.
inline std::string holder_ready_fifo() {
    return scratch_dir() + "/holder-ready";
}

// Another process working on a database: runs `sqlite3 db` fed with script
// (one command per line) in a shell, then keeps its input open for hold_seconds
// before sending the final line (e.g. "COMMIT;"). The script tells when it
// holds what it should by ".system echo ready > <holder_ready_fifo()>";
// wait_ready blocks until then. The destructor ends the process group if it
// still runs.
class DatabaseHolder {
public:
    DatabaseHolder(const std::string& db, const std::string& script, const std::string& hold_seconds,
                   const std::string& final_line)
        : fifo_(holder_ready_fifo()) {
        mkfifo(fifo_.c_str(), 0600);
        const std::string command = "{ printf '%s\\n' \"$1\"; sleep " + hold_seconds +
                                    "; printf '%s\\n' \"$2\"; } | exec /usr/bin/sqlite3 -batch \"$3\"";
        pid_ = fork();
        if (pid_ == 0) {
            setpgid(0, 0);
            execl("/bin/sh", "sh", "-c", command.c_str(), "holder", script.c_str(), final_line.c_str(), db.c_str(),
                  static_cast<char*>(nullptr));
            _exit(127);
        }
        setpgid(pid_, pid_);
    }
    ~DatabaseHolder() {
        if (pid_ > 0) {
            kill(-pid_, SIGTERM);
            wait_exit();
        }
    }
    DatabaseHolder(const DatabaseHolder&) = delete;
    DatabaseHolder& operator=(const DatabaseHolder&) = delete;

    // The first line written to the readiness fifo.
    std::string wait_ready() {
        const int fd = open(fifo_.c_str(), O_RDONLY | O_CLOEXEC);
        std::string line;
        char c = 0;
        while (fd >= 0 && read(fd, &c, 1) == 1 && c != '\n')
            line += c;
        if (fd >= 0)
            close(fd);
        return line;
    }

    // Waits for the process to end by itself; its exit status.
    int wait_exit() {
        int status = 0;
        const pid_t waited = waitpid(pid_, &status, 0);
        pid_ = -1;
        if (waited < 0)
            return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    std::string fifo_;
    pid_t pid_ = -1;
};

}  // namespace sorvane::test
