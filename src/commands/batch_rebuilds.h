// The rebuild of qmail's compiled user assignment table and the reload of
// qmail-send, run once for a whole batch.
//
// Each command's process defers both (qmail/rebuild_deferral.h) and notes,
// for each request, how far its standard output and error had come. After
// the batch's last command, each is run once, in a process of its own whose
// output is captured; every command that asked for it then gets that shared
// run's output at the place where it asked, and status 1 when the run failed
// and the command would otherwise have succeeded: what the command alone
// would have printed and ended with, had its own run gone the same way.
#pragma once

#include <string>
#include <vector>

#include "commands/batch_outcome.h"

namespace crelm::mail::sorvane_commands {

// In a command's process, before the command starts: each request is noted
// in file (a memory file of the batch) instead of run.
void defer_rebuilds_into(int file);
// The marks a command's process left in file, in the order it asked.
int read_rebuild_marks(int file, std::vector<RebuildMark>& marks);

// What one shared run printed and whether it failed.
struct SharedRun {
    bool ran = false;
    bool failed = false;
    std::string out;
    std::string err;
};

struct SharedRebuild {
    SharedRun newu;
    SharedRun reload;
};

// Runs qmail-newu when newu, then the reload of qmail-send when reload,
// each in a process of its own with its output captured. 0, or -1 when a
// process could not be run (errno set).
int run_shared_rebuild(bool newu, bool reload, SharedRebuild& rebuild);

// Gives outcome, whose command left marks, the shared runs' output at each
// mark and the failure of a failed run.
void apply_shared_rebuild(const SharedRebuild& rebuild, const std::vector<RebuildMark>& marks, BatchOutcome& outcome);

}  // namespace crelm::mail::sorvane_commands
