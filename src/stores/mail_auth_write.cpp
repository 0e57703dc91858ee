#include "stores/mail_auth_write.h"

#include "stores/mail_auth_paths.h"
#include "stores/store_access.h"

int run_auth_write(sqlite3* db, const char* sql, AuthBindings bindings, const AuthFailureReport& report_failure) {
    crelm::SqliteStatement statement;
    if (prepare_auth_statement(db, sql, bindings, statement) != 0)
        return -1;
    if (sqlite_step_with_retry(statement.get()) != SQLITE_DONE) {
        report_failure(sqlite_error_text(db));
        return -1;
    }
    return 0;
}

int run_auth_write_alone(const char* sql, AuthBindings bindings, const AuthFailureReport& report_failure) {
    crelm::SqliteDb db;
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return run_auth_write(db.get(), sql, bindings, report_failure);
}
