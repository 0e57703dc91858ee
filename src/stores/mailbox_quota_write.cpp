#include "stores/mailbox_quota_write.h"

#include <string>

#include "runtime/log.h"
#include "stores/store_access.h"

namespace crelm::mail {
namespace {

// Prepares and steps a statement without parameters ("BEGIN TRANSACTION;",
// "END TRANSACTION;"); step_failure is the message for a step that does not
// end in SQLITE_DONE.
bool run_transaction_statement(sqlite3* db, std::string_view sql, const char* step_failure) {
    SqliteStatement statement;
    if (prepare_store_statement(db, sql, statement) != 0)
        return false;
    if (sqlite_step_with_retry(statement.get()) == SQLITE_DONE)
        return true;
    log_message(3, step_failure, sqlite_error_text(db));
    return false;
}

}  // namespace

bool bind_quota_text(sqlite3* db, sqlite3_stmt* statement, std::initializer_list<QuotaTextParameter> parameters) {
    int index = 0;
    for (const QuotaTextParameter& parameter : parameters) {
        const int rc = sqlite3_bind_text64(statement, ++index, parameter.value.data(), parameter.value.size(),
                                           SQLITE_STATIC, SQLITE_UTF8);
        if (rc != SQLITE_OK) {
            log_message(3, "Unable to bind parameter %s: %s", parameter.name, sqlite_error_text(db));
            return false;
        }
    }
    return true;
}

QuotaWriteOutcome QuotaStatement::run(std::initializer_list<QuotaTextParameter> parameters,
                                      const std::function<void(const char* reason)>& report_step_failure) {
    if ((!statement_ && prepare_store_statement(db_, sql_, statement_) != 0) ||
        !bind_quota_text(db_, statement_.get(), parameters))
        return QuotaWriteOutcome::FailedBeforeStep;
    const int rc = sqlite_step_with_retry(statement_.get());
    if (rc != SQLITE_DONE)
        report_step_failure(sqlite_error_text(db_));
    // Ready for the next run, and holding no pointer into the caller's text.
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    return rc == SQLITE_DONE ? QuotaWriteOutcome::Done : QuotaWriteOutcome::StepFailed;
}

bool run_quota_write(const std::string& path, const std::function<QuotaWriteOutcome(sqlite3* db)>& body) {
    SqliteDb db;
    if (open_store_db(path, SqliteOpenMode::ReadWrite, db) != 0 ||
        !run_transaction_statement(db.get(), "BEGIN TRANSACTION;", "Unable to begin sqlite transaction: %s"))
        return true;
    switch (body(db.get())) {
        case QuotaWriteOutcome::StepFailed:
            return false;
        case QuotaWriteOutcome::FailedBeforeStep:
            return true;
        case QuotaWriteOutcome::Done:
            break;
    }
    return run_transaction_statement(db.get(), "END TRANSACTION;", "Unable to end sqlite transaction: %s");
}

}  // namespace crelm::mail
