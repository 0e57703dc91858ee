// The transaction that every write of the mailbox quota store runs in, and
// the statement step inside it. Internal to the quota store.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>

#include "stores/sqlite_retry.h"

namespace crelm::mail {

// A text parameter and the name its bind failure message gives. The value is
// bound without a copy for the length of one run.
struct QuotaTextParameter {
    const std::string& value;
    const char* name;
};

// Binds the parameters in order (1, 2, ...) as text. Returns true; on
// failure logs "Unable to bind parameter <name>: <reason>" and returns false.
bool bind_quota_text(sqlite3* db, sqlite3_stmt* statement, std::initializer_list<QuotaTextParameter> parameters);

// What the statements of one write came to.
enum class QuotaWriteOutcome {
    Done,
    FailedBeforeStep,  // prepare or bind failed: logged, reported as success
    StepFailed,        // the write's own statement failed: logged, reported as failure
};

// One statement of a write, prepared at its first run and reset after each,
// so that a bulk write parses its SQL once.
class QuotaStatement {
public:
    QuotaStatement(sqlite3* db, std::string_view sql) : db_(db), sql_(sql) {}

    // Binds the parameters in order (1, 2, ...) and steps the statement once.
    // Failures are logged here ("Unable to prepare SQL statement for query
    // '<sql>': <reason>", "Unable to bind parameter <name>: <reason>"),
    // except a failed step, which report_step_failure logs with SQLite's text.
    QuotaWriteOutcome run(std::initializer_list<QuotaTextParameter> parameters,
                          const std::function<void(const char* reason)>& report_step_failure);

private:
    sqlite3* db_;
    std::string_view sql_;
    SqliteStatement statement_;
};

// Opens path read-write, begins a transaction, runs body, ends the
// transaction and closes the database. Returns false when body's outcome is
// StepFailed or the transaction cannot be ended, true otherwise (also after
// a logged failure to open, begin, prepare or bind). A failure abandons the
// transaction by closing, so nothing of it reaches the file.
bool run_quota_write(const std::string& path, const std::function<QuotaWriteOutcome(sqlite3* db)>& body);

}  // namespace crelm::mail
