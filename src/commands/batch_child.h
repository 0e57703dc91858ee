// Running one command of a batch as a process of its own.
#pragma once

#include <string>

#include "commands/batch_document.h"

namespace crelm::mail::sorvane_commands {

struct BatchOutcome {
    int status = 0;   // exit status, or 128 + signal number when killed
    std::string out;  // all the command wrote on standard output
    std::string err;  // all the command wrote on standard error
};

// Forks a child that runs command exactly as a fresh sorvane process would
// (program is the argv[0] it sees): the batch process itself runs no
// command, so every piece of process state the child starts from (session
// data, options, logger, password, error stream) is as main leaves it. The
// child's standard input holds the command's "stdin" text (or nothing),
// its standard output and error are captured whole, and its password is
// handed over in memory, never through an argument or the environment.
// Returns 0 with outcome filled, or -1 when the child could not be run
// (errno set).
int run_batch_child(const BatchCommand& command, const std::string& program, BatchOutcome& outcome);

}  // namespace crelm::mail::sorvane_commands
