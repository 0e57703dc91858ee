// sorvane --batch: many commands in one run.
#pragma once

namespace crelm::mail::sorvane_commands {

// Reads the batch document on standard input whole (see batch_document.h)
// and, when every line is a command, runs them in order (each as a fresh
// process of program would) and prints one output object per command run.
// argv[0] is "--batch"; its only option is --stop-on-error, which makes the
// first command not ending 0 the last one run. Returns 0 when every command
// ended 0, 1 when one did not, 2 when the batch could not run (a bad option
// or line: nothing is run then) or could not go on (no child could be run,
// the output could not be written).
int batch_command(int argc, char** argv, const char* program);

}  // namespace crelm::mail::sorvane_commands
