// Running other programs as child processes, synchronously.
//
// Argument vectors hold the program path as their first element (it becomes
// the child's argv[0]). No child ever inherits a descriptor from 3 up, and
// none goes through a shell except popen_exec's command. Every wait uses
// WUNTRACED, so a stopped child counts as a failure (-1) instead of hanging
// the caller; the stopped child is killed (SIGKILL) and reaped. Pipes to or
// from a child are read or written only while it runs: once it has ended,
// what a pipe already holds is taken and the pipe is left, even when a
// grandchild still holds its other end.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

using ArgList = std::vector<std::string>;

// Passed for a standard descriptor of fork_execv: the child gets /dev/null.
inline constexpr int kNoDescriptor = -1;

// Runs path with argv, standard input from fd_in, standard output to fd_out
// and standard error into a pipe that is relayed, in chunks of at most 4095
// bytes, to report_error, while the child runs. Result: the child's exit code, or -1 when it was
// killed ("The child process with pid %d killed by signal %i\n"), stopped
// ("The child process with pid %d stopped by signal %i\n") or could not be
// waited for ("Error occured during waiting the child process with pid: %d:
// %s\n"). fd_in 0 or fd_out 1 is refused with "values 0,1,2 not allowed for
// variables fd_in & fd_out\n" and -1. A failed pipe ("fork_exec_fd pipe():
// %s") or fork ("Error occured during fork():\n%s") ends the program.
int fork_exec_fd(int fd_in, int fd_out, const std::string& path, const ArgList& argv);

// Starts path with argv; each standard descriptor comes from in, out, err,
// or from /dev/null (read-write) where kNoDescriptor is given. Result: the
// child's pid; the caller waits for it (wait_child_logged in
// util/child_wait.h). A failed fork ends the program
// ("fork_execv_pipes: fork() failed"). The child itself prints
// "fork_execv: dup() failed: %s\n" or "fork_execv: execv(\"%s\") failed:
// %s\n" on its standard error and exits with 127.
pid_t fork_execv(const std::string& path, const ArgList& argv, int in = kNoDescriptor, int out = kNoDescriptor,
                 int err = kNoDescriptor);

// Runs path with argv, all three standard descriptors on /dev/null, and
// waits. Result: 1 if the child was killed by a signal, -1 if it was
// stopped or could not be waited for, else its exit code. Abnormal ends are
// logged as by wait_child_logged.
int fork_execv_quiet(const std::string& path, const ArgList& argv);

// Runs path with argv, standard input on /dev/null, and collects its
// standard output into out and its standard error into err (both replaced).
// Result: the exit code, or -1 (logged as by wait_child_logged). A failed
// pipe ("fork_execv_getouterr: pipe() failed"), a failed fcntl
// ("fork_execv_getouterr: fcntl(O_NONBLOCK) failed") or memory exhaustion
// ("Cannot allocate memory") ends the program; a failed read is reported
// ("fork_exec*: read(pipe) failed: %s\n") and ends the collection from that
// pipe.
int fork_execv_getouterr(std::string& out, std::string& err, const std::string& path, const ArgList& argv);

enum class FailureOutput { report, quiet };

// fork_execv_getouterr, and on a non-zero result (unless quiet) the
// collected standard output printed on standard error and the report
// "%s execution failed:\n%s" (path, standard error text), or
// "%s execution failed (no output)" when the child wrote nothing on its
// standard error. Result: the exit code (or -1).
int exec_report(const std::string& path, const ArgList& argv, FailureOutput output = FailureOutput::report);

// Runs the panel utility /opt/qvt/admin/sbin/<name> with args through
// exec_report. A name that contains "/" is refused without running
// anything: "Utility name '%s' is invalid. Use only utility name without
// path." and -1. Result: the exit code or -1.
int exec_utility(const std::string& name, const ArgList& args);

// Runs command through /bin/sh -c (the caller quotes it) and writes input
// to its standard input while the shell runs. A stopped shell is logged as by
// wait_child_logged (name "/bin/sh"). Result: the exit code (0 when the child ended
// without one, e.g. killed), or -1: "Failed to execute command with input:
// either pipe, fork or memory allocation failed." when it cannot start,
// "Failed to execute command with input: only %lu of %lu bytes were
// written." when it stopped reading early.
int popen_exec(const std::string& command, const std::string& input);
