// The transaction that every write of the mailbox quota store runs in, and
// the statement step inside it. Internal to the quota store.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

namespace crelm::mail {

// A text parameter and the name its bind failure message gives. The value is
// bound without a copy, so it must outlive the statement.
struct QuotaTextParameter {
    const std::string& value;
    const char* name;
};

// What the statements of one write came to.
enum class QuotaWriteOutcome {
    Done,
    FailedBeforeStep,  // prepare or bind failed: logged, reported as success
    StepFailed,        // the write's own statement failed: logged, reported as failure
};

// Prepares sql, binds the parameters in order (1, 2, ...), steps it once and
// finalizes it. Failures are logged here ("Unable to prepare SQL statement
// for query '<sql>': <reason>", "Unable to bind parameter <name>: <reason>"),
// except a failed step, which report_step_failure logs with SQLite's text.
QuotaWriteOutcome run_quota_statement(sqlite3* db, std::string_view sql,
                                      std::initializer_list<QuotaTextParameter> parameters,
                                      const std::function<void(const char* reason)>& report_step_failure);

// Opens path read-write, begins a transaction, runs body, ends the
// transaction and closes the database. Returns false when body's outcome is
// StepFailed or the transaction cannot be ended, true otherwise (also after
// a logged failure to open, begin, prepare or bind). A failure abandons the
// transaction by closing, so nothing of it reaches the file.
bool run_quota_write(const std::string& path, const std::function<QuotaWriteOutcome(sqlite3* db)>& body);

}  // namespace crelm::mail
