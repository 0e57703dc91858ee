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

}  // namespace crelm::util
