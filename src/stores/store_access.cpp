#include "stores/store_access.h"

#include "runtime/log.h"
#include "stores/store_file_check.h"

#include <syslog.h>

int open_store_db(const std::string& path, SqliteOpenMode mode, crelm::SqliteDb& db) {
    require_regular_store_files(path);
    if (sqlite_open_db(path, mode, db) == SQLITE_OK)
        return 0;
    log_message(LOG_ERR,
                mode == SqliteOpenMode::ReadOnly ? "Unable to open database(readonly) %s: %s"
                                                 : "Unable to open database %s: %s",
                path.c_str(), sqlite_error_text(db.get()));
    db.close();
    return -1;
}

int prepare_store_statement(sqlite3* db, std::string_view sql, crelm::SqliteStatement& statement) {
    if (sqlite_prepare_with_retry(db, sql, statement) == SQLITE_OK)
        return 0;
    log_message(LOG_ERR, "Unable to prepare SQL statement for query '%s': %s", std::string(sql).c_str(),
                sqlite_error_text(db));
    return -1;
}

int run_store_schema(sqlite3* db, const char* schema, const std::string& failure) {
    std::string error;
    if (sqlite_exec_transaction_with_retry(db, schema, &error) == SQLITE_OK)
        return 0;
    if (error.empty())
        log_message(LOG_ERR, "%s", failure.c_str());
    else
        log_message(LOG_ERR, "%s: %s", failure.c_str(), error.c_str());
    return -1;
}

const char* column_text_or_null(sqlite3_stmt* statement, int column) {
    if (sqlite3_column_type(statement, column) == SQLITE_NULL)
        return nullptr;
    return reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
}
