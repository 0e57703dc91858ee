#include "commands/batch_rebuilds.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

#include "commands/batch_child.h"
#include "qmail/delivery.h"
#include "util/fd_copy.h"

namespace crelm::mail::sorvane_commands {
namespace {

using crelm::qmail::RebuildKind;

// The memory file of the running command's process that takes its marks.
int& marks_file() {
    static int file = -1;
    return file;
}

// How far a standard descriptor has been written: the captured files are
// memory files written from their start, so the offset is the length.
std::uint64_t written(int fd) {
    const off_t offset = ::lseek(fd, 0, SEEK_CUR);
    return offset < 0 ? 0 : static_cast<std::uint64_t>(offset);
}

// Notes one request: the streams are flushed first, so that the offsets
// count everything the command printed before it asked.
void note_request(RebuildKind kind) {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const RebuildMark mark{kind, written(STDOUT_FILENO), written(STDERR_FILENO)};
    const std::string_view bytes(reinterpret_cast<const char*>(&mark), sizeof mark);
    if (!crelm::util::write_all(marks_file(), bytes)) {
        // Unnoted, the request would be lost: the command ends as a killed
        // one would, and the batch reports it.
        std::perror("sorvane --batch: unable to note a rebuild");
        ::_exit(111);
    }
}

// The shared run's output goes into text at offset; later offsets move on.
void insert_at(std::string& text, std::uint64_t offset, std::uint64_t& moved, const std::string& inserted) {
    const std::uint64_t at = offset + moved;
    text.insert(at <= text.size() ? at : text.size(), inserted);
    moved += inserted.size();
}

int run_once(SharedRun& run, int (*step)()) {
    BatchOutcome outcome;
    if (run_captured_child([step] { return step() != 0 ? 1 : 0; }, outcome) < 0)
        return -1;
    run.ran = true;
    run.failed = outcome.status != 0;
    run.out = std::move(outcome.out);
    run.err = std::move(outcome.err);
    return 0;
}

}  // namespace

void defer_rebuilds_into(int file) {
    marks_file() = file;
    crelm::qmail::set_rebuild_deferral(note_request);
}

int read_rebuild_marks(int file, std::vector<RebuildMark>& marks) {
    marks.clear();
    RebuildMark mark;
    for (off_t offset = 0;; offset += sizeof mark) {
        const ssize_t got = ::pread(file, &mark, sizeof mark, offset);
        if (got < 0 && errno == EINTR) {
            offset -= sizeof mark;
            continue;
        }
        if (got < 0)
            return -1;
        if (got != sizeof mark)
            return 0;
        marks.push_back(mark);
    }
}

int run_shared_rebuild(bool newu, bool reload, SharedRebuild& rebuild) {
    if (newu && run_once(rebuild.newu, qmail_newu) < 0)
        return -1;
    if (reload && run_once(rebuild.reload, reload_qmail_send) < 0)
        return -1;
    return 0;
}

void apply_shared_rebuild(const SharedRebuild& rebuild, const std::vector<RebuildMark>& marks, BatchOutcome& outcome) {
    std::uint64_t out_moved = 0;
    std::uint64_t err_moved = 0;
    bool failed = false;
    for (const RebuildMark& mark : marks) {
        const SharedRun& run = mark.kind == RebuildKind::newu ? rebuild.newu : rebuild.reload;
        insert_at(outcome.out, mark.out_offset, out_moved, run.out);
        insert_at(outcome.err, mark.err_offset, err_moved, run.err);
        failed |= run.failed;
    }
    if (failed && outcome.status == 0)
        outcome.status = 1;
}

}  // namespace crelm::mail::sorvane_commands
