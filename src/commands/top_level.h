// What main does with whatever escapes a command.
#pragma once

#include <functional>

namespace crelm::mail::sorvane_commands {

// Runs body and turns its result or escaping exception into the exit status:
// crelm::CrelmUtilException prints its text on standard output and standard
// error (1); another std::exception prints "Fatal error: <type>(<what>)" and
// any traceback on the error stream (1); anything else prints
// "UNSPECIFIED ERROR OCCURED" (2).
int run_with_top_level_handling(const std::function<int()>& body);

}  // namespace crelm::mail::sorvane_commands
