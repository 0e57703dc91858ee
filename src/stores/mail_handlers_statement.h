// Preparing, binding and running the statements of the mail handlers store,
// with the store's messages. Internal to the store.
#pragma once

#include "stores/mail_handler_record.h"
#include "stores/sqlite_retry.h"

#include <initializer_list>
#include <span>
#include <string_view>
#include <variant>

// The statement kinds the store's messages name.
enum class HandlerQuery { Insert, Delete, Update, Select };

struct HandlerParam {
    const char* label;  // as bind messages name it: "'name'", "old 'address'"
    std::variant<int, std::string_view> value;
};

using HandlerParams = std::initializer_list<HandlerParam>;

// Prepares sql and binds params in order. Returns 0; on failure logs the
// prepare message or "Unable to bind parameter %s to the '%s' query: %s" and
// returns -1.
int prepare_handler_statement(sqlite3* db, const char* sql, HandlerQuery kind, HandlerParams params,
                              crelm::SqliteStatement& statement);

// Prepares, binds and steps an INSERT, DELETE or UPDATE once on an open
// database. Returns 0; on failure logs "Unable to execute insert record into
// handlers database: %s" (delete, update alike) and returns -1.
int run_handler_change(sqlite3* db, const char* sql, HandlerQuery kind, HandlerParams params);

// Opens the database read-write, runs one change and closes it. 0 or -1.
int run_handler_change_alone(const char* sql, HandlerQuery kind, HandlerParams params);

// The record fields, named in the column order of a SELECT.
enum class HandlerField { Priority, Type, Queue, Name, Address, Executable, Context, Enabled };

enum class HandlerSelection {
    Listing,  // step failures: "Unable to select data from handlers database: %s"
    Running,  // step failures: "Unable to get data from mail handlers database: %s"
};

// Runs a SELECT through a read-only handle and appends one record per row,
// columns read in the order given; address_for_all (when not empty) fills
// the address of rows that do not select it. On failure list is left as it
// was and -1 returned; a row that cannot be copied logs "Unable to save the
// data from SELECT query".
int select_handler_rows(const char* sql, HandlerParams params, std::span<const HandlerField> columns,
                        HandlerSelection selection, std::string_view address_for_all, MailHandlerList& list);
