// Whole-file substitutions by running "/bin/sed".
#pragma once

#include <string>
#include <vector>

// Under path's lock in the lock directory (the lock every editor of the
// file takes), runs "/bin/sed" with sed_args (the script arguments) reading
// path and writing a temporary file of this edit's own,
// "<path>.tmp.XXXXXX" (mode 0600; copies that killed edits left are removed
// first), flushes that to the disk (fsync), then renames the temporary file
// over path and flushes the directory (path is replaced in one step and
// never missing, so a crash or power cut leaves the old or the new content).
// A regular file gets its owner, group and mode back; failing that is only a warning ("WARNING: unable to restore
// ownership to file %s: %s\n", "WARNING: unable to restore permissions to
// file %s: %s\n"). Result: 0, or -1 after one of
//   "ERROR: Unable to save file '%s' attributes : %s"
//   "ERROR: Unable to open file %s for reading: %s"
//   "ERROR: Unable to truncate or create file %s: %s"
//   "Error during sed working\n" (sed's own complaints are relayed first)
//   "Unable to close file %s: %s\n" (the temporary file's flush or close)
//   "Unable to rename '%s' to '%s' file: %s" (the rename or the directory's
//     flush; after the latter the edit is in place)
// The file is reached by the walk of util/nofollow.h and never through a
// link at its own name.
// On any failure before the rename the file is unchanged and the temporary
// file is removed.
int run_sed_on_file(const std::vector<std::string>& sed_args, const std::string& path);
