// Removing what killed runs left behind in a directory: their temporary
// files, known by their names.
#pragma once

#include <functional>
#include <string_view>

namespace crelm::util {

// Removes every entry of the directory open on dir_fd (any handle, O_PATH
// included) whose name stale accepts and that is not a directory. Entries
// are removed by name in the opened directory, so neither a link on the way
// nor a link at the name is followed (a link is removed itself). Best effort:
// a directory or entry that cannot be read or removed is passed over
// silently, since what is left is harmless and the next run tries again.
void remove_stale_entries(int dir_fd, const std::function<bool(std::string_view name)>& stale);

// Whether entry is prefix followed by the six letters or digits that
// TempFile::create_unique appends.
bool is_unique_temporary(std::string_view entry, std::string_view prefix);

// Removes what killed edits of the file name (inside dir_fd) left beside
// it: "<name>.tmp.XXXXXX" copies and the "<name>.tmp" of older runs. Only a
// caller holding the file's lock may do this: every edit of the file holds
// it, so none of those copies belongs to an edit still at work.
void remove_abandoned_temporaries(int dir_fd, const std::string& name);

}  // namespace crelm::util
