#include "mailbox/mailbox_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "runtime/error_stream.h"

namespace fs = std::filesystem;

namespace sorvane::test {

void make_maildir(const std::string& maildir, std::initializer_list<std::string> subfolders) {
    for (const char* sub : {"tmp", "new", "cur"})
        fs::create_directories(maildir + "/" + sub);
    for (const auto& folder : subfolders) {
        for (const char* sub : {"tmp", "new", "cur"})
            fs::create_directories(maildir + "/" + folder + "/" + sub);
        write_file(maildir + "/" + folder + "/maildirfolder", "");
    }
}

void write_message(const std::string& path, std::size_t size) { write_file(path, std::string(size, 'm')); }

std::string make_mailbox(const std::string& domain, const std::string& mailname) {
    const std::string mailbox = "/var/qmail/mailnames/" + domain + "/" + mailname;
    make_maildir(mailbox + "/Maildir", {".Spam", ".Sent"});
    fs::create_directories(mailbox + "/@attachments");
    return mailbox;
}

namespace {

std::string slurp_fd(int fd) {
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char buffer[4096];
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

int capture_file(const char* name) {
    std::string path = scratch_dir() + "/" + name + ".XXXXXX";
    const int fd = mkstemp(path.data());
    unlink(path.c_str());
    return fd;
}

}  // namespace

ProcessResult run_in_child(const std::function<int()>& body) {
    const int out = capture_file("child-out");
    const int err = capture_file("child-err");
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out, 1);
        dup2(err, 2);
        const int status = body();
        crelm::error_stream().flush();
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
        _exit(status);
    }
    ProcessResult result;
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = slurp_fd(out);
    result.err = slurp_fd(err);
    close(out);
    close(err);
    return result;
}

time_t mtime_of(const std::string& path) {
    struct stat st;
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st.st_mtime;
}

std::vector<std::string> names_in(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace sorvane::test
