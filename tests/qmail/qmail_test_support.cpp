#include "qmail/qmail_test_support.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "qmail/mailname_tree.h"
#include "runtime/error_stream.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_store.h"

namespace sorvane::test {
namespace {

int capture_file(const char* name) {
    const std::string path = scratch_dir() + "/" + name;
    return open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

std::string slurp_fd(int fd) {
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    close(fd);
    return text;
}

}  // namespace

void QmailTest::SetUp() {
    LoggingTest::SetUp();
    // The runtime configuration is there, naming nothing: every path is the
    // default one.
    write_file("/etc/qvt/qvt.conf", "", 0644);
    set_mail_auth_paths(kMailServerQmail);
    ASSERT_EQ(init_mail_auth_store(kMailServerQmail), 0);
}

std::vector<std::string> QmailTest::logged() {
    std::vector<std::string> lines;
    for (const std::string& record : syslog_capture().records()) {
        const int priority = std::atoi(record.c_str() + 1) & 7;
        const auto text = record.find("]: ");
        lines.push_back(std::to_string(priority) + " " +
                        (text == std::string::npos ? record : record.substr(text + 3)));
    }
    return lines;
}

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
    return result;
}

int add_auth_user(const std::string& mailname, const std::string& domain) {
    return add_mail_auth_user(mailname, domain, "secret", kMailAuthPasswordInStoredForm);
}

std::string auth_users() {
    const ProcessResult result =
        run_process({"/usr/bin/sqlite3", "-batch", mail_auth_db_path(),
                     "SELECT users.name || '@' || domains.name FROM users JOIN domains ON users.dom_id = domains.id "
                     "ORDER BY users.id;"});
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

std::string make_domain_dir(const std::string& domain) {
    const std::string dir = std::string(kMailnamesDir) + "/" + domain;
    EXPECT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
    EXPECT_EQ(chown(dir.c_str(), popuser_uid(), popuser_gid()), 0) << dir;
    return dir;
}

std::string home_of(const std::string& mailname, const std::string& domain) {
    return std::string(kMailnamesDir) + "/" + domain + "/" + mailname;
}

std::string assign_record(const std::string& mailname, const std::string& domain) {
    return "=" + domain + "-" + mailname + ":popuser:" + std::to_string(popuser_uid()) + ":" +
           std::to_string(popuser_gid()) + ":" + home_of(mailname, domain) + ":::";
}

std::vector<std::string> expected_home_listing() {
    std::vector<std::string> listing{".qmail"};
    for (const crelm::qmail::MailnameTreeEntry& entry : crelm::qmail::kMailnameTree) {
        listing.push_back(std::string(entry.directory) + "/");
        if (entry.folder_marker != nullptr)
            listing.push_back(entry.folder_marker);
    }
    std::sort(listing.begin(), listing.end());
    return listing;
}

void expect_popuser_entry(const std::string& path, mode_t mode, char type) {
    const FileInfo info = file_info(path);
    EXPECT_EQ(info.uid, popuser_uid()) << path;
    EXPECT_EQ(info.gid, popuser_gid()) << path;
    EXPECT_EQ(info.mode, mode) << path;
    EXPECT_EQ(info.type, type) << path;
}

void expect_home_owned(const std::string& home) {
    expect_popuser_entry(home, 0700, 'd');
    for (const std::string& entry : list_tree(home)) {
        const bool directory = entry.back() == '/';
        expect_popuser_entry(home + "/" + entry, directory ? 0700 : 0600, directory ? 'd' : 'f');
    }
}

void hide_directory(const std::string& directory) {
    ASSERT_EQ(mount("sorvane-hidden", directory.c_str(), "tmpfs", 0, "mode=0755"), 0) << directory;
}

void install_lda(const std::string& path) {
    install_fake(path);
}

void write_default_delivery(const std::string& content) {
    write_file(kDefaultDeliveryFile, content, 0644);
}

}  // namespace sorvane::test
