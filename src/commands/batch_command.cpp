// sorvane --batch [--stop-on-error]: the commands of a batch document run one
// after another, each as its own process, and one output object for each.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands/batch_child.h"
#include "commands/batch_command.h"
#include "commands/batch_document.h"
#include "commands/batch_output.h"
#include "commands/batch_rebuilds.h"
#include "commands/batch_staging.h"
#include "stores/library_warm_up.h"
#include "util/fd_copy.h"

namespace crelm::mail::sorvane_commands {
namespace {

// The exit statuses of the batch itself.
constexpr int kEveryCommandSucceeded = 0;
constexpr int kSomeCommandFailed = 1;
constexpr int kBatchNotRun = 2;

// Batches longer than this show their progress on a terminal.
constexpr std::size_t kProgressThreshold = 100;

struct BatchSettings {
    bool stop_on_error = false;
};

int batch_usage_error(const std::string& message) {
    std::fprintf(stderr, "Error: %s\nUsage: sorvane --batch [--stop-on-error] < document\n", message.c_str());
    return kBatchNotRun;
}

int read_settings(int argc, char** argv, BatchSettings& settings) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--stop-on-error") != 0)
            return batch_usage_error(std::string("unknown option ") + argv[i] + " for --batch");
        settings.stop_on_error = true;
    }
    return 0;
}

// The document, read whole and checked whole before anything runs; the
// text read is wiped, since it holds the passwords.
bool read_document(BatchDocument& document) {
    std::string text;
    const int read_result = crelm::util::read_to_end(STDIN_FILENO, text) ? 0 : -1;
    const int read_errno = errno;
    if (read_result == 0)
        document = parse_batch_document(text);
    explicit_bzero(text.data(), text.size());
    if (read_result < 0) {
        std::fprintf(stderr, "Error: unable to read the batch document: %s\n", std::strerror(read_errno));
        return false;
    }
    if (document.failed_line != 0) {
        std::fprintf(stderr, "Error: batch line %zu: %s; nothing was run\n", document.failed_line,
                     document.reason.c_str());
        return false;
    }
    return true;
}

class Progress {
public:
    explicit Progress(std::size_t total)
        : total_(total), shown_(total > kProgressThreshold && ::isatty(STDERR_FILENO) == 1) {}

    void done(std::size_t count) const {
        if (shown_)
            std::fprintf(stderr, "\rsorvane --batch: %zu of %zu commands run", count, total_);
    }
    void finish() const {
        if (shown_)
            std::fputs("\n", stderr);
    }

private:
    std::size_t total_;
    bool shown_;
};

bool write_object(std::size_t line, const BatchOutcome& outcome) {
    const std::string object = batch_output_object(line, outcome.status, outcome.out, outcome.err);
    if (crelm::util::write_all(STDOUT_FILENO, object))
        return true;
    std::fprintf(stderr, "Error: unable to write the batch output: %s\n", std::strerror(errno));
    return false;
}

// The outcomes held back since the first command that changed a file the
// batch writes once or left its rebuild to the batch: their objects wait
// for those writes and the shared run's result.
struct HeldOutcomes {
    std::vector<std::pair<std::size_t, BatchOutcome>> outcomes;
    bool newu = false;
    bool reload = false;

    void hold(std::size_t line, BatchOutcome&& outcome) {
        for (const RebuildMark& mark : outcome.marks) {
            newu |= mark.kind == crelm::qmail::RebuildKind::newu;
            reload |= mark.kind == crelm::qmail::RebuildKind::reload;
        }
        outcomes.emplace_back(line, std::move(outcome));
    }
};

// Writes the files the batch edited in memory, runs the shared rebuild and
// reload that the held commands asked for, then prints their objects. The
// batch's status, or kBatchNotRun.
int release_held(HeldOutcomes& held, BatchStaging& staging, int result) {
    std::vector<StagedWriteFailure> failures;
    const bool written = end_batch_staging(staging, failures) == 0;
    const int write_errno = errno;
    SharedRebuild rebuild;
    const bool rebuilt = held.outcomes.empty() || run_shared_rebuild(held.newu, held.reload, rebuild) == 0;
    const int rebuild_errno = errno;
    // Without a write or the shared run the objects still say what each
    // command did, and the batch says on standard error what is missing.
    for (auto& [line, outcome] : held.outcomes) {
        if (rebuilt)
            apply_shared_rebuild(rebuild, outcome.marks, outcome);
        apply_staged_write_failures(failures, line, outcome);
        if (!write_object(line, outcome))
            return kBatchNotRun;
        if (outcome.status != 0)
            result = kSomeCommandFailed;
    }
    if (!written) {
        std::fprintf(stderr, "Error: unable to write the files the batch edited: %s\n", std::strerror(write_errno));
        return kBatchNotRun;
    }
    if (!rebuilt) {
        std::fprintf(stderr, "Error: unable to run the batch's rebuild of the user assignment table: %s\n",
                     std::strerror(rebuild_errno));
        return kBatchNotRun;
    }
    return result;
}

// A renamed domain restarts qmail at once, which must then read the renamed
// control files: a batch holding one edits the files in place.
bool renames_domain(const BatchDocument& document) {
    return std::any_of(document.commands.begin(), document.commands.end(), [](const BatchCommand& command) {
        return !command.args.empty() && command.args.front() == "--rename-domain";
    });
}

int run_commands(BatchDocument& document, const std::string& program, const BatchSettings& settings) {
    int result = kEveryCommandSucceeded;
    const Progress progress(document.commands.size());
    // With --stop-on-error each command's status must be known before the
    // next one runs, so each runs its own rebuild and writes its own files.
    const Rebuilds rebuilds = settings.stop_on_error ? Rebuilds::own : Rebuilds::deferred;
    // Each command's process digests names, enciphers passwords and opens
    // the stores: set the libraries up once here rather than in every one.
    warm_up_libraries_before_forks();
    BatchStaging staging;
    if (!settings.stop_on_error && !renames_domain(document))
        begin_batch_staging(staging);
    HeldOutcomes held;
    std::size_t count = 0;
    // Set when the batch cannot go on, with what it says last (empty when
    // it has said it already).
    std::optional<std::string> stopped;
    for (BatchCommand& command : document.commands) {
        BatchOutcome outcome;
        open_held_edits(staging);
        const int run = run_batch_child(command, program, rebuilds, outcome);
        const int run_errno = errno;
        command.wipe_passwords();
        if (run < 0) {
            stopped = "Error: unable to run batch line " + std::to_string(command.line) + ": " +
                      std::strerror(run_errno) + "\n";
            break;
        }
        progress.done(++count);
        const int status = outcome.status;
        // A command that changed a file the batch edits in memory waits for
        // that file's write, as one that asked for a rebuild waits for it.
        const bool edited = note_staged_edits(staging, command.line);
        if (!outcome.marks.empty() || edited || !held.outcomes.empty()) {
            held.hold(command.line, std::move(outcome));
        } else if (!write_object(command.line, outcome)) {
            stopped = std::string();
            break;
        }
        if (status != 0) {
            result = kSomeCommandFailed;
            if (settings.stop_on_error)
                break;
        }
    }
    progress.finish();
    for (BatchCommand& command : document.commands)
        command.wipe_passwords();
    // What ran is written and rebuilt even when the batch stops early.
    result = release_held(held, staging, result);
    if (!stopped)
        return result;
    std::fputs(stopped->c_str(), stderr);
    return kBatchNotRun;
}

}  // namespace

int batch_command(int argc, char** argv, const char* program) {
    BatchSettings settings;
    if (const int refused = read_settings(argc, argv, settings); refused != 0)
        return refused;
    BatchDocument document;
    if (!read_document(document))
        return kBatchNotRun;
    return run_commands(document, program, settings);
}

}  // namespace crelm::mail::sorvane_commands
