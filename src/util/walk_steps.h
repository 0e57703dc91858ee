// The steps that tree walks share to keep a bounded number of descriptors
// however deep a tree goes: a directory's entries are read whole, through
// the walk's own descriptor on it, before anything below it is opened, and
// the walk climbs back to a parent it did not keep open through "..",
// checked to be the directory it came down from.
#pragma once

#include "util/unique_fd.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace crelm::util {

// The names in the directory open on fd ("." and ".." left out), in the
// order the directory gives them, into names. false with errno set when
// the directory cannot be listed.
bool read_directory_names(int fd, std::vector<std::string>& names);

// A name in a directory and the type the directory gives for it (a DT_
// value of <dirent.h>; DT_UNKNOWN where the file system does not tell). The
// type is a hint only: the entry may change before it is used.
struct ListedEntry {
    std::string name;
    unsigned char type = 0;
};

// read_directory_names with each name's type.
bool read_directory_entries(int fd, std::vector<ListedEntry>& entries);

// The parent of the directory open on fd, opened through "..", when it is
// the directory with identity dev and ino (the one the walk came down
// from). Invalid otherwise: errno ESTALE when the directory was moved
// elsewhere meanwhile, else open's or fstat's errno.
UniqueFd open_checked_parent(int fd, dev_t dev, ino_t ino);

}  // namespace crelm::util
