// Opening a store's database and preparing its statements, with the messages
// both the authentication store and the handlers store give.
#pragma once

#include "stores/sqlite_retry.h"

#include <string>
#include <string_view>

// Opens path (read-write, created when missing; or read-only, after rolling
// back a hot journal that a killed writer left) with the busy timeout set.
// The database and its journals must each be missing or a regular file
// (require_regular_store_files), or the program ends with status 1.
// Returns 0; on failure logs "Unable to open database %s: %s" or "Unable to
// open database(readonly) %s: %s" at error level, closes whatever handle
// SQLite returned and returns -1.
int open_store_db(const std::string& path, SqliteOpenMode mode, crelm::SqliteDb& db);

// Prepares sql under the busy-retry rule. Returns 0; on failure logs
// "Unable to prepare SQL statement for query '%s': %s" and returns -1.
int prepare_store_statement(sqlite3* db, std::string_view sql, crelm::SqliteStatement& statement);

// Runs schema, a script of statements in a transaction of its own, under the
// busy-retry rule; a transaction left open by a busy attempt is rolled back
// before the script runs again. Returns 0; on failure logs "<failure>:
// <SQLite's message>" at error level ("<failure>" alone when SQLite gives no
// message) and returns -1.
int run_store_schema(sqlite3* db, const char* schema, const std::string& failure);

// The text of a column, or nullptr when it is NULL.
const char* column_text_or_null(sqlite3_stmt* statement, int column);
