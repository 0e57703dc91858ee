// Whole-file line edits of control files and assign, run in this process.
#pragma once

#include <string>

#include "util/line_rewrite.h"

// Under path's lock in the lock directory (the lock every editor of the
// file takes), reads path and writes its lines as rewrite has them (see
// util/line_rewrite.h) to a temporary file of this edit's own,
// "<path>.tmp.XXXXXX" (mode 0600; copies that killed edits left are removed
// first), flushes that to the disk (fsync), then renames the temporary file
// over path and flushes the directory (path is replaced in one step and
// never missing, so a crash or power cut leaves the old or the new content).
// A regular file gets its owner, group and mode back; failing that is only a
// warning ("WARNING: unable to restore ownership to file %s: %s\n",
// "WARNING: unable to restore permissions to file %s: %s\n"). Result: 0, or
// -1 after one of
//   "ERROR: Unable to save file '%s' attributes : %s"
//   "ERROR: Unable to open file %s for reading: %s"
//   "ERROR: Unable to truncate or create file %s: %s"
//   "ERROR: Unable to read file %s: %s" (path could not be read to its end)
//   "Unable to write data into file %s: %s\n" (the temporary file)
//   "Unable to close file %s: %s\n" (the temporary file's flush or close)
//   "Unable to rename '%s' to '%s' file: %s" (the rename or the directory's
//     flush; after the latter the edit is in place)
// The file is reached by the walk of util/nofollow.h and never through a
// link at its own name.
// On any failure before the rename the file is unchanged and the temporary
// file is removed.
int edit_lines_locked(const std::string& path, const crelm::util::LineRewrite& rewrite);
