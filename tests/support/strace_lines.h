// Reading the lines of an strace -f log, for the tests that prove a program
// changes nothing: which call a line makes, and its arguments with the
// quoted strings (paths, read buffers) emptied.
#pragma once

#include <string>
#include <utility>

namespace sorvane::test {

// The call of one line ("[pid N] " or "N " first when several processes are
// traced) and its arguments; empty for the second half of an interrupted
// call, a signal or an exit.
std::pair<std::string, std::string> call_of(std::string line);

// args with every quoted string emptied ("..." becomes ""), so that a flag
// named inside a path or a read buffer is not taken for one of the call's.
// Scanned by hand: a regular expression recurses once per character of a
// long string, which overflows the stack of the sanitizer build.
std::string without_quoted(const std::string& args);

}  // namespace sorvane::test
