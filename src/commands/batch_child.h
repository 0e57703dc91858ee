// Running one command of a batch as a process of its own.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "commands/batch_document.h"
#include "commands/batch_outcome.h"

namespace crelm::mail::sorvane_commands {

// Whether the command's process leaves the rebuild of qmail's compiled user
// assignment table and the reload of qmail-send to the batch.
enum class Rebuilds { own, deferred };

// Forks a child that runs command exactly as a fresh sorvane process would
// (program is the argv[0] it sees): the batch process itself runs no
// command, so every piece of process state the child starts from (session
// data, options, logger, password, error stream) is as main leaves it. The
// child's standard input holds the command's "stdin" text (or nothing),
// its standard output and error are captured whole, and its password is
// handed over in memory, never through an argument or the environment.
// With Rebuilds::deferred its requests are noted in outcome.marks instead
// of run. Returns 0 with outcome filled, or -1 when the child could not be
// run (errno set).
int run_batch_child(const BatchCommand& command, const std::string& program, Rebuilds rebuilds,
                    BatchOutcome& outcome);

// Runs body in a forked child with an empty standard input and its standard
// output and error captured into outcome; body's result is its exit status.
int run_captured_child(const std::function<int()>& body, BatchOutcome& outcome);

}  // namespace crelm::mail::sorvane_commands
