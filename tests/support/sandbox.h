// Test support: the sandbox every test runs in, and helpers to run programs
// and read what they leave.
//
// The suite runs only under tests/sandbox/run-tests, which enters a private
// mount namespace. Each test process then takes a mount namespace of its own,
// and every SandboxTest starts with fresh trees at the system paths:
// /var/qmail, /var/lib/crelm, /etc/domainkeys, /etc/qvt, /opt/qvt, /run
// (empty: the program makes its lock directory there), /tmp and /dev (null, zero, full, random, urandom,
// tty, ptmx, pts, shm, fd), private /etc/passwd and /etc/group with user and
// group popuser and group nofiles, /var/qmail/users/assign holding ".\n", and
// recording fakes at /var/qmail/bin/qmail-newu, /usr/bin/killall and
// /opt/qvt/admin/sbin/crelmrc.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace sorvane::test {

// Fixture: every test begins with fresh sandbox trees.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override;
};

// Rebuilds the sandbox trees from scratch (SandboxTest::SetUp calls it).
void reset_sandbox();

// Ids of the sandbox's mail owner.
uid_t popuser_uid();
gid_t popuser_gid();
gid_t nofiles_gid();

struct ProcessResult {
    int status = -1;  // exit status, or 128 + signal number when killed
    std::string out;  // everything written to standard output
    std::string err;  // everything written to standard error
};

struct RunOptions {
    enum class Stdin { Closed, Null, Pipe };
    Stdin stdin_mode = Stdin::Null;
    // With Stdin::Pipe: written to the child's standard input, then the pipe
    // is closed. If input_after_output is set, the writing waits until the
    // child's standard output contains that text (or the child exits).
    std::string input;
    std::optional<std::string> input_after_output;
    // Extra environment entries "NAME=value" and names to remove.
    std::vector<std::string> env;
    std::vector<std::string> unset_env;
};

// Runs argv[0] (an absolute path) with the given arguments and waits for it.
ProcessResult run_process(const std::vector<std::string>& argv, const RunOptions& options = {});

// Path of the built sorvane binary.
std::string sorvane_path();

// Path of the built sorvane-audit binary.
std::string sorvane_audit_path();

// Runs the built sorvane-audit binary with args (argv[0] is added).
ProcessResult run_sorvane_audit(const std::vector<std::string>& args, const RunOptions& options = {});

// Path of a program built from tests/programs/<name>.cpp.
std::string test_program_path(const std::string& name);

// Runs the built sorvane binary with args (argv[0] is added).
ProcessResult run_sorvane(const std::vector<std::string>& args, const RunOptions& options = {});

// Whole-file helpers; read_file fails the test when the file cannot be read.
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content, mode_t mode = 0644);
bool path_exists(const std::string& path);  // lstat succeeds

struct FileInfo {
    uid_t uid;
    gid_t gid;
    mode_t mode;  // permission bits only (07777)
    char type;    // 'f' file, 'd' directory, 'l' symbolic link, '?' other
};
FileInfo file_info(const std::string& path);  // lstat; fails the test if missing

// Bind-mounts the file at path onto itself, so that a rename over it fails
// (EBUSY) while writing to it, appending included, still works: a file that
// can be appended to but not replaced. unpin_file undoes it.
void pin_file(const std::string& path);
void unpin_file(const std::string& path);

// True while /proc/locks shows process pid waiting for an flock; with
// lock_file, for the flock of that file only.
bool waits_for_flock(pid_t pid, const std::string& lock_file = "");

// Makes /run/sorvane a directory that another user (uid 65534) owns, as a
// local user could where it is not made first: the program must refuse to
// keep its locks there.
void plant_foreign_lock_directory();

// The temporary files that edits of the file at path keep beside it:
// entries of its directory named "<name>.tmp" or "<name>.tmp.<suffix>".
std::vector<std::string> temporaries_beside(const std::string& path);

// Every path below root (relative, sorted, directories end in '/').
std::vector<std::string> list_tree(const std::string& root);

// The calls a fake received, one entry per call: its arguments joined by
// single blanks. name is the fake's base name ("qmail-newu", "killall",
// "crelmrc", or one installed by install_fake).
std::vector<std::string> fake_calls(const std::string& name);

// The exit status the named fake gives from now on (default 0).
void set_fake_status(const std::string& name, int status);

// Puts a recording fake at any absolute path: inside the sandbox trees it is
// written there; elsewhere it is bind-mounted over the existing file or, when
// the file is missing, its directory gets a private overlay. The fake records
// its call, runs extra_script (sh, may be empty) and exits with its status.
void install_fake(const std::string& path, const std::string& extra_script = "");

// Puts an arbitrary executable text (with its #! line) at any absolute path,
// by the same rules as install_fake.
void install_program(const std::string& path, const std::string& content);

// A private scratch directory for the current test (inside the fresh /tmp).
std::string scratch_dir();

// Receives what the program sends to syslog: binds a datagram socket at
// /dev/log for as long as it lives.
class SyslogCapture {
public:
    SyslogCapture();
    ~SyslogCapture();
    SyslogCapture(const SyslogCapture&) = delete;
    SyslogCapture& operator=(const SyslogCapture&) = delete;

    // Every record received so far, raw ("<pri>timestamp ident[pid]: text").
    std::vector<std::string> records();
    // The message texts only (after "ident[pid]: ").
    std::vector<std::string> messages();

private:
    int fd_ = -1;
    std::vector<std::string> received_;
};

}  // namespace sorvane::test
