// A directory whose chosen files are edited in memory for a while: in a
// mount namespace of this process's own, a memory file system is mounted
// over the directory, holding copies of those files (content, owner, group,
// mode and times); every other entry shows the real one, mounted in by
// bind. Processes forked from then on edit the copies; the real files stay
// as they were until the holder writes the copies back. Nothing of this
// reaches the rest of the system, and it all goes away when the namespace's
// last process ends.
#pragma once

#include <string>
#include <vector>

#include "util/unique_fd.h"

namespace crelm::util {

// Moves this process into a mount namespace of its own, whose mounts never
// propagate to the system's (the system's later mounts still reach it).
// 0, or -1 with errno (EPERM without the privilege to make one).
int enter_private_mount_namespace();

struct StagedDirectory {
    std::string path;
    // The memory copy's root: still readable after unstage_directory.
    UniqueFd copy;
    bool mounted = false;
};

// Stages the directory path with copies of the regular files named in
// names (a name that is missing or not a regular file stays missing in the
// copy; what killed edits of those files left beside them, "<name>.tmp...",
// "<name>.mail.XXXXXX", is left out). 0, or -1 with errno, nothing mounted.
int stage_directory(const std::string& path, const std::vector<std::string>& names, StagedDirectory& staged);

// Takes the memory file system off path, which shows the real directory
// again; staged.copy still reads the copies. 0, or -1 with errno.
int unstage_directory(StagedDirectory& staged);

}  // namespace crelm::util
