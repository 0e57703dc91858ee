#include "qmail/newu_generations.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>

#include "util/lock_directory.h"

namespace crelm::qmail {
namespace {

constexpr const char* kFileName = "qmail-newu.generations";

// What the file holds: "<taken> <built> <result>\n". A file that is empty
// or unreadable counts as all zero (nothing pending).
struct Counts {
    unsigned long long taken = 0;
    unsigned long long built = 0;
    int result = 0;
};

Counts read_counts(int fd) {
    char text[96] = {};
    const ssize_t got = ::pread(fd, text, sizeof text - 1, 0);
    Counts counts;
    if (got <= 0 || std::sscanf(text, "%llu %llu %d", &counts.taken, &counts.built, &counts.result) != 3)
        return Counts{};
    return counts;
}

bool write_counts(int fd, const Counts& counts) {
    char text[96];
    const int length = std::snprintf(text, sizeof text, "%llu %llu %d\n", counts.taken, counts.built, counts.result);
    return ::pwrite(fd, text, length, 0) == length && ::ftruncate(fd, length) == 0;
}

// Runs change on the counts under the file's own lock, held only for the
// read and the write. false when the lock or the write failed.
bool with_counts(int fd, const std::function<void(Counts&)>& change) {
    int locked = -1;
    do {
        locked = ::flock(fd, LOCK_EX);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0)
        return false;
    Counts counts = read_counts(fd);
    const Counts before = counts;
    change(counts);
    const bool changed = counts.taken != before.taken || counts.built != before.built || counts.result != before.result;
    const bool written = !changed || write_counts(fd, counts);
    ::flock(fd, LOCK_UN);
    return written;
}

}  // namespace

std::optional<NewuGenerations> NewuGenerations::open() {
    bool refused = false;
    crelm::util::UniqueFd file(
        crelm::util::open_in_lock_directory(kFileName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, refused));
    if (!file.valid())
        return std::nullopt;
    return NewuGenerations(std::move(file));
}

std::optional<unsigned long long> NewuGenerations::take() {
    unsigned long long mine = 0;
    if (!with_counts(file_.get(), [&](Counts& counts) { mine = ++counts.taken; }))
        return std::nullopt;
    return mine;
}

std::optional<unsigned long long> NewuGenerations::reached() {
    unsigned long long taken = 0;
    if (!with_counts(file_.get(), [&](Counts& counts) { taken = counts.taken; }))
        return std::nullopt;
    return taken;
}

std::optional<int> NewuGenerations::result_covering(unsigned long long generation) {
    std::optional<int> result;
    with_counts(file_.get(), [&](Counts& counts) {
        if (counts.built >= generation)
            result = counts.result;
    });
    return result;
}

void NewuGenerations::record_rebuild(unsigned long long reached, int result) {
    with_counts(file_.get(), [&](Counts& counts) {
        if (reached >= counts.built) {
            counts.built = reached;
            counts.result = result;
        }
    });
}

}  // namespace crelm::qmail
