// Writing batch documents and reading what sorvane --batch prints, for the
// batch tests: the tests' own JSON writer and a strict reader of the output
// objects, independent of the program's.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "e2e/server_state.h"
#include "support/sandbox.h"

namespace sorvane::test {

// One command as a batch line describes it, and as a separate process runs it.
struct BatchEntry {
    std::vector<std::string> args;
    std::optional<std::string> password;
    std::optional<std::string> crypted_password;
    std::optional<std::string> stdin_text;
};

// text as a JSON string: '"', '\\' and control characters escaped, other
// bytes as they are.
std::string json_string(const std::string& text);
// The batch line for entry (without its line feed).
std::string batch_line(const BatchEntry& entry);
// Every entry's line, each ended by a line feed.
std::string batch_document(const std::vector<BatchEntry>& entries);

// Runs entry as one sorvane process: its "stdin" on a pipe (empty and closed
// without it), its passwords in QVT_PASSWORD / QVT_CRYPTED_PASSWORD.
ProcessResult run_entry(const BatchEntry& entry);

// Runs sorvane --batch (with extra options) on document.
ProcessResult run_batch(const std::string& document, const std::vector<std::string>& options = {});

// What a batch leaves in the calls of the fixed programs, from what the
// same commands leave one process at a time: qmail-newu and the reload
// signal run at most once, after the last command, and of the restarts only
// the one that follows the shared reload signal's failure stays (a reload
// that fails goes on to one restart; the domain renames' own restarts
// stay). reload_fails tells whether each reload signal failed.
ServerState with_shared_runs(ServerState alone, bool reload_fails = false);

// text with the process ids of log records copied to standard error
// ("sorvane[4711]") taken out: they differ between any two runs.
std::string without_pids(const std::string& text);

struct OutputObject {
    long line = 0;
    int status = -1;
    std::string out;
    std::string err;
};

// Reads the output of a batch: one object per line, each exactly
// {"line": N, "status": S, "stdout": "...", "stderr": "..."}, in pure ASCII
// (the \u escapes decoded to UTF-8). A line that is not such an object fails
// the test.
std::vector<OutputObject> read_output_objects(const std::string& output);

}  // namespace sorvane::test
