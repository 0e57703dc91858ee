// The control files and the user assignment table that a batch edits in
// memory and writes once.
//
// Before the first command, the batch takes the locks that single commands
// take for rcpthosts, virtualdomains, locals, rejectnonexist and assign,
// and holds them until its last write: other panels' commands wait for
// them, and each command of the batch is given them at once
// (util/handed_down_locks.h). Their directories are staged
// (util/staged_directory.h): every command edits the copies in memory
// through its own usual path, and the real files stay as they were. After
// the last command, each file that some command changed is written once:
// a unique temporary file, flushed, renamed onto the real one, the
// directory flushed. A batch killed before that leaves every one of those
// files as it was before the batch.
//
// assign, the largest of them, is held in memory as its lines
// (util/held_lines.h): each command's edits of it are made on the lines and
// logged, replayed in the batch's own copy of the lines, and written to the
// file once, with the rest.
//
// When the locks cannot be taken or the system refuses the private mounts
// (no privilege for them), the batch edits the real files in place, command
// by command, as single commands do.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "commands/batch_outcome.h"
#include "util/file_stamp.h"
#include "util/staged_directory.h"

namespace crelm::mail::sorvane_commands {

struct StagedFile {
    std::string path;
    std::size_t directory = 0;  // index into BatchStaging::directories
    std::string name;
    crelm::util::FileStamp stamp;   // of the copy, after the last command that changed it
    std::vector<std::size_t> lines;  // the batch lines whose commands changed it
};

struct BatchStaging {
    bool active = false;
    std::vector<crelm::util::StagedDirectory> directories;
    std::vector<StagedFile> files;
    // assign's lines, held in memory (util/held_lines.h) while its copy
    // stays as staged: whether a command changed them, and the error that
    // lost a command's changes (0 while none did).
    bool held_changed = false;
    int held_lost = 0;
};

// A file whose write failed: what the write printed, and which lines had changed it.
struct StagedWriteFailure {
    BatchOutcome outcome;
    std::vector<std::size_t> lines;
};

// Takes the locks and stages the files; staging.active tells whether it did.
void begin_batch_staging(BatchStaging& staging);

// Before each command: opens the log of its edits of the lines held for
// assign (or, when it cannot, writes them to assign's copy and lets the
// commands edit that).
void open_held_edits(BatchStaging& staging);

// After the command of line: notes which files it changed (replaying its
// edits of the lines held for assign). Whether it changed one.
bool note_staged_edits(BatchStaging& staging, std::size_t line);

// Writes each changed file once (each in a process of its own whose output
// is captured), takes the copies away and releases the locks. failures gets
// each file whose write failed, a file whose process could not be run
// included. 0, or -1 when such a process could not be run (errno set);
// nothing is done when staging is not active.
int end_batch_staging(BatchStaging& staging, std::vector<StagedWriteFailure>& failures);

// Gives outcome, the command of line, the failures of the files it changed:
// their output at the end of its own, and status 1 when it had succeeded.
void apply_staged_write_failures(const std::vector<StagedWriteFailure>& failures, std::size_t line,
                                 BatchOutcome& outcome);

}  // namespace crelm::mail::sorvane_commands
