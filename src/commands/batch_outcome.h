// What one process of a batch left: its status, its output, and where it
// asked for the rebuild and reload that the batch runs once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qmail/rebuild_deferral.h"

namespace crelm::mail::sorvane_commands {

// One request of a command: what it asked for, and the lengths of its
// standard output and error at that moment.
struct RebuildMark {
    crelm::qmail::RebuildKind kind = crelm::qmail::RebuildKind::newu;
    std::uint64_t out_offset = 0;
    std::uint64_t err_offset = 0;
};

struct BatchOutcome {
    int status = 0;                  // exit status, or 128 + signal number when killed
    std::string out;                 // all the process wrote on standard output
    std::string err;                 // all the process wrote on standard error
    std::vector<RebuildMark> marks;  // its deferred requests, in the order it made them
};

}  // namespace crelm::mail::sorvane_commands
