// Sharing rebuilds of qmail's compiled user assignment table between panels.
//
// Every caller of qmail_newu has finished its edits of assign when it asks
// for a rebuild, and takes a number, its generation, from a counter. A
// rebuild first notes how far the counter has come, then runs qmail-newu,
// which reads assign afterwards: the rebuild therefore covers every
// generation up to the one it noted. A caller that gets its turn after a
// rebuild covering its generation has completed takes that rebuild's result
// as its own instead of running another one. The numbers live in
// "qmail-newu.generations" in the lock directory (root's alone, empty again
// after a reboot, when no rebuild is pending).
#pragma once

#include "util/unique_fd.h"

#include <optional>

namespace crelm::qmail {

class NewuGenerations {
public:
    // The counter file, made when missing; nullopt when it cannot be used
    // (the rebuild then runs as if nothing were shared).
    static std::optional<NewuGenerations> open();

    // Takes the next generation for a caller whose edits are done.
    std::optional<unsigned long long> take();
    // The generation reached so far, noted by a rebuild before it runs.
    std::optional<unsigned long long> reached();
    // The result of the last completed rebuild when it covered generation.
    std::optional<int> result_covering(unsigned long long generation);
    // Notes a completed rebuild that covered up to reached, and its result.
    void record_rebuild(unsigned long long reached, int result);

private:
    explicit NewuGenerations(crelm::util::UniqueFd file) : file_(std::move(file)) {}

    crelm::util::UniqueFd file_;
};

}  // namespace crelm::qmail
