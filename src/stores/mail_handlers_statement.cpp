#include "stores/mail_handlers_statement.h"

#include "runtime/log.h"
#include "stores/mail_handlers_store.h"
#include "stores/store_access.h"

#include <syslog.h>

namespace {

const char* query_kind_name(HandlerQuery kind) {
    switch (kind) {
    case HandlerQuery::Insert:
        return "INSERT";
    case HandlerQuery::Delete:
        return "DELETE";
    case HandlerQuery::Update:
        return "UPDATE";
    case HandlerQuery::Select:
        break;
    }
    return "SELECT";
}

int bind_param(sqlite3_stmt* statement, int index, const HandlerParam& param) {
    if (const int* number = std::get_if<int>(&param.value))
        return sqlite3_bind_int(statement, index, *number);
    const std::string_view text = std::get<std::string_view>(param.value);
    // An empty view may carry no pointer; SQLite would bind that as NULL.
    const char* data = text.data() != nullptr ? text.data() : "";
    return sqlite3_bind_text(statement, index, data, static_cast<int>(text.size()), SQLITE_STATIC);
}

void log_change_failure(HandlerQuery kind, const char* error) {
    switch (kind) {
    case HandlerQuery::Insert:
        log_message(LOG_ERR, "Unable to execute insert record into handlers database: %s", error);
        break;
    case HandlerQuery::Delete:
        log_message(LOG_ERR, "Unable to execute delete record from handlers database: %s", error);
        break;
    case HandlerQuery::Update:
    case HandlerQuery::Select:
        log_message(LOG_ERR, "Unable to execute update record into handlers database: %s", error);
        break;
    }
}

void log_selection_failure(HandlerSelection selection, const char* error) {
    if (selection == HandlerSelection::Running)
        log_message(LOG_ERR, "Unable to get data from mail handlers database: %s", error);
    else
        log_message(LOG_ERR, "Unable to select data from handlers database: %s", error);
}

// The record's text field for a column, or nullptr for the other fields.
std::string* required_text_field(HandlerField field, MailHandlerRecord& record) {
    switch (field) {
    case HandlerField::Name:
        return &record.name;
    case HandlerField::Address:
        return &record.address;
    case HandlerField::Executable:
        return &record.executable;
    default:
        return nullptr;
    }
}

// Copies one column into its field; false when a text the record needs is NULL.
bool read_field(sqlite3_stmt* statement, int column, HandlerField field, MailHandlerRecord& record) {
    if (std::string* target = required_text_field(field, record)) {
        const char* text = column_text_or_null(statement, column);
        if (text == nullptr)
            return false;
        *target = text;
        return true;
    }
    if (field == HandlerField::Context) {
        if (const char* text = column_text_or_null(statement, column))
            record.context = text;
        return true;
    }
    const int number = sqlite3_column_int(statement, column);
    switch (field) {
    case HandlerField::Priority:
        record.priority = number;
        break;
    case HandlerField::Type:
        record.type = number;
        break;
    case HandlerField::Queue:
        record.queue = number;
        break;
    default:
        record.enabled = number != 0;
        break;
    }
    return true;
}

bool read_row(sqlite3_stmt* statement, std::span<const HandlerField> columns, std::string_view address_for_all,
              MailHandlerRecord& record) {
    record.address = address_for_all;
    for (std::size_t column = 0; column < columns.size(); ++column) {
        if (!read_field(statement, static_cast<int>(column), columns[column], record)) {
            log_message(LOG_ERR, "Unable to save the data from SELECT query");
            return false;
        }
    }
    return true;
}

int read_rows(sqlite3* db, sqlite3_stmt* statement, std::span<const HandlerField> columns,
              HandlerSelection selection, std::string_view address_for_all, MailHandlerList& list) {
    for (;;) {
        const int rc = sqlite_step_with_retry(statement);
        if (rc == SQLITE_DONE)
            return 0;
        if (rc != SQLITE_ROW) {
            log_selection_failure(selection, sqlite_error_text(db));
            return -1;
        }
        MailHandlerRecord record;
        if (!read_row(statement, columns, address_for_all, record))
            return -1;
        list.push_back(std::move(record));
    }
}

}  // namespace

int prepare_handler_statement(sqlite3* db, const char* sql, HandlerQuery kind, HandlerParams params,
                              crelm::SqliteStatement& statement) {
    if (prepare_store_statement(db, sql, statement) != 0)
        return -1;
    int index = 1;
    for (const HandlerParam& param : params) {
        if (bind_param(statement.get(), index++, param) != SQLITE_OK) {
            log_message(LOG_ERR, "Unable to bind parameter %s to the '%s' query: %s", param.label,
                        query_kind_name(kind), sqlite_error_text(db));
            return -1;
        }
    }
    return 0;
}

int run_handler_change(sqlite3* db, const char* sql, HandlerQuery kind, HandlerParams params) {
    crelm::SqliteStatement statement;
    if (prepare_handler_statement(db, sql, kind, params, statement) != 0)
        return -1;
    if (sqlite_step_with_retry(statement.get()) != SQLITE_DONE) {
        log_change_failure(kind, sqlite_error_text(db));
        return -1;
    }
    return 0;
}

int run_handler_change_alone(const char* sql, HandlerQuery kind, HandlerParams params) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return run_handler_change(db.get(), sql, kind, params);
}

int select_handler_rows(const char* sql, HandlerParams params, std::span<const HandlerField> columns,
                        HandlerSelection selection, std::string_view address_for_all, MailHandlerList& list) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadOnly, db) != 0)
        return -1;
    crelm::SqliteStatement statement;
    if (prepare_handler_statement(db.get(), sql, HandlerQuery::Select, params, statement) != 0)
        return -1;
    const std::size_t original_size = list.size();
    if (read_rows(db.get(), statement.get(), columns, selection, address_for_all, list) != 0) {
        list.resize(original_size);
        return -1;
    }
    return 0;
}
