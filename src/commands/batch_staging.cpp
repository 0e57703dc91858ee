#include "commands/batch_staging.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "commands/batch_child.h"
#include "qmail/paths.h"
#include "runtime/log.h"
#include "util/file_lock.h"
#include "util/file_replace.h"
#include "util/fd_copy.h"
#include "util/handed_down_locks.h"
#include "util/held_lines.h"
#include "util/nofollow.h"

namespace crelm::mail::sorvane_commands {
namespace {

using crelm::util::UniqueFd;

// The files a batch edits in memory, in the order their locks are taken
// (every batch takes them in this order, so two batches never wait on each
// other crosswise).
const char* const kStagedPaths[] = {crelm::qmail::kRcptHosts, crelm::qmail::kVirtualDomains, crelm::qmail::kLocals,
                                    crelm::qmail::kRejectNonExist, crelm::qmail::kUsersAssign};

std::pair<std::string, std::string> split_path(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

bool take_locks(std::vector<FileLock>& locks) {
    for (const char* path : kStagedPaths) {
        FileLock lock = lock_file(path, LockPlace::lock_directory);
        if (!lock.held())
            return false;
        locks.push_back(std::move(lock));
    }
    return true;
}

// Stages each directory once, with the names of its staged files.
bool stage_files(BatchStaging& staging) {
    for (const char* path : kStagedPaths) {
        auto [directory, name] = split_path(path);
        auto found = std::find_if(staging.directories.begin(), staging.directories.end(),
                                  [&directory](const crelm::util::StagedDirectory& staged) { return staged.path == directory; });
        if (found == staging.directories.end()) {
            staging.directories.emplace_back();
            staging.directories.back().path = directory;
            found = staging.directories.end() - 1;
        }
        staging.files.push_back(
            StagedFile{path, static_cast<std::size_t>(found - staging.directories.begin()), name, {}, {}});
    }
    for (crelm::util::StagedDirectory& directory : staging.directories) {
        std::vector<std::string> names;
        for (const StagedFile& file : staging.files) {
            if (&staging.directories[file.directory] == &directory)
                names.push_back(file.name);
        }
        if (crelm::util::stage_directory(directory.path, names, directory) != 0)
            return false;
    }
    for (StagedFile& file : staging.files)
        file.stamp = crelm::util::stamp_of(file.path);
    return true;
}

void unstage_all(BatchStaging& staging) {
    for (crelm::util::StagedDirectory& directory : staging.directories)
        crelm::util::unstage_directory(directory);
}

bool same_version(const crelm::util::FileStamp& one, const crelm::util::FileStamp& other) {
    return one.known == other.known && (!one.known || crelm::util::same_stamp(one, other));
}

// The copy is gone: so goes the real file.
int remove_real_file(const std::string& path) {
    FileLock lock = lock_file(path, LockPlace::lock_directory);
    if (!lock.held()) {
        report_error(0, 0, "Error occurred while locking the file %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    const crelm::util::ParentDir parent = crelm::util::open_parent(path);
    if (!parent.fd.valid() || (::unlinkat(parent.fd.get(), parent.name.c_str(), 0) != 0 && errno != ENOENT)) {
        report_error(0, 0, "Unable to remove file %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    return 0;
}

// Writes the copy of file onto the real one, with the copy's owner, group
// and mode. Runs in a process of its own: 0, or 1 after a message.
int write_back(const BatchStaging& staging, const StagedFile& file) {
    const int copies = staging.directories[file.directory].copy.get();
    const UniqueFd copy(::openat(copies, file.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!copy.valid()) {
        if (errno == ENOENT)
            return remove_real_file(file.path);
        report_error(0, 0, "Unable to open file %s: %s\n", file.path.c_str(), std::strerror(errno));
        return 1;
    }
    struct stat info {};
    if (::fstat(copy.get(), &info) != 0) {
        report_error(0, 0, "Unable to read file %s: %s\n", file.path.c_str(), std::strerror(errno));
        return 1;
    }
    const auto give_attributes = [&info](int fd) {
        if (::fchown(fd, info.st_uid, info.st_gid) != 0) {
            report_error(0, 0, "chown failed: %s\n", std::strerror(errno));
            return false;
        }
        if (::fchmod(fd, info.st_mode & 07777) != 0) {
            report_error(0, 0, "chmod failed: %s\n", std::strerror(errno));
            return false;
        }
        return true;
    };
    return crelm::util::replace_file_locked_from(file.path, copy.get(), give_attributes) == 0 ? 0 : 1;
}

// assign's copy read into a table of lines, held for the commands; left
// as a file when it cannot be read or is not whole short lines.
void hold_assign_lines() {
    const UniqueFd copy(::open(crelm::qmail::kUsersAssign, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!copy.valid())
        return;
    std::unique_ptr<crelm::util::LineTable> table = crelm::util::LineTable::read_from(copy.get());
    if (table)
        crelm::util::hold_lines(crelm::qmail::kUsersAssign, std::move(table));
}

// The held lines written over assign's copy (its owner and mode stay).
bool write_held_lines(const crelm::util::LineTable& table) {
    const UniqueFd copy(::open(crelm::qmail::kUsersAssign, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
    return copy.valid() && table.write_to(copy.get());
}

StagedFile* staged_assign(BatchStaging& staging) {
    for (StagedFile& file : staging.files)
        if (file.path == crelm::qmail::kUsersAssign)
            return &file;
    return nullptr;
}

// The held lines given back to assign's copy, which the commands then edit.
// When they cannot be written, every command that changed them fails with
// the batch's write of assign.
void end_holding(BatchStaging& staging) {
    crelm::util::LineTable* table = crelm::util::held_lines(crelm::qmail::kUsersAssign);
    if (table == nullptr)
        return;
    if (staging.held_changed && staging.held_lost == 0 && !write_held_lines(*table))
        staging.held_lost = errno;
    crelm::util::release_held_lines();
    if (StagedFile* assign = staged_assign(staging))
        assign->stamp = crelm::util::stamp_of(assign->path);
}

// Replays the edits the command made of the held lines: whether it made any.
bool replay_held_edits(BatchStaging& staging) {
    crelm::util::LineTable* table = crelm::util::held_lines(crelm::qmail::kUsersAssign);
    if (table == nullptr)
        return false;
    const std::optional<std::size_t> replayed = table->replay_log();
    if (!replayed) {
        // The command's changes cannot be known: assign is not written.
        staging.held_lost = errno;
        staging.held_changed = true;
        crelm::util::release_held_lines();
        return true;
    }
    staging.held_changed = staging.held_changed || *replayed > 0;
    if (table->given_up()) {
        // The command wrote the lines to the copy and edited it there.
        crelm::util::release_held_lines();
    }
    return *replayed > 0;
}

}  // namespace

void begin_batch_staging(BatchStaging& staging) {
    std::vector<FileLock> locks;
    if (!take_locks(locks) || crelm::util::enter_private_mount_namespace() != 0)
        return;
    if (!stage_files(staging)) {
        unstage_all(staging);
        staging.directories.clear();
        staging.files.clear();
        return;
    }
    for (FileLock& lock : locks)
        crelm::util::hand_down_lock(std::move(lock));
    staging.active = true;
    hold_assign_lines();
}

void open_held_edits(BatchStaging& staging) {
    crelm::util::LineTable* table = crelm::util::held_lines(crelm::qmail::kUsersAssign);
    if (table != nullptr && !table->open_log())
        end_holding(staging);
}

bool note_staged_edits(BatchStaging& staging, std::size_t line) {
    if (!staging.active)
        return false;
    const bool held_edited = replay_held_edits(staging);
    bool changed = false;
    for (StagedFile& file : staging.files) {
        const crelm::util::FileStamp now = crelm::util::stamp_of(file.path);
        const bool edited = held_edited && file.path == crelm::qmail::kUsersAssign;
        if (same_version(now, file.stamp) && !edited)
            continue;
        file.stamp = now;
        file.lines.push_back(line);
        changed = true;
    }
    return changed;
}

int end_batch_staging(BatchStaging& staging, std::vector<StagedWriteFailure>& failures) {
    if (!staging.active)
        return 0;
    staging.active = false;
    end_holding(staging);
    // Taken away first, so that the real files are the ones written; the
    // copies stay readable through their directories' handles.
    bool unstaged = true;
    for (crelm::util::StagedDirectory& directory : staging.directories)
        unstaged = crelm::util::unstage_directory(directory) == 0 && unstaged;
    int result = 0;
    for (const StagedFile& file : staging.files) {
        if (file.lines.empty())
            continue;
        StagedWriteFailure failure;
        if (staging.held_lost != 0 && file.path == crelm::qmail::kUsersAssign) {
            failure.outcome.status = 1;
            failure.outcome.err = "Unable to write file " + file.path + ": " + std::strerror(staging.held_lost) + "\n";
        } else if (!unstaged) {
            failure.outcome.status = 1;
            failure.outcome.err = "Unable to write file " + file.path + ": the batch could not take its copy away\n";
        } else if (run_captured_child([&staging, &file] { return write_back(staging, file); }, failure.outcome) < 0) {
            // The file stays as before the batch: its commands say so.
            result = -1;
            failure.outcome.status = 1;
            failure.outcome.err = "Unable to write file " + file.path + ": " + std::strerror(errno) + "\n";
        }
        if (failure.outcome.status != 0) {
            failure.lines = file.lines;
            failures.push_back(std::move(failure));
        }
    }
    const int saved = errno;
    crelm::util::release_handed_down_locks();
    errno = saved;
    return result;
}

void apply_staged_write_failures(const std::vector<StagedWriteFailure>& failures, std::size_t line,
                                 BatchOutcome& outcome) {
    for (const StagedWriteFailure& failure : failures) {
        if (std::find(failure.lines.begin(), failure.lines.end(), line) == failure.lines.end())
            continue;
        outcome.out += failure.outcome.out;
        outcome.err += failure.outcome.err;
        if (outcome.status == 0)
            outcome.status = 1;
    }
}

}  // namespace crelm::mail::sorvane_commands
