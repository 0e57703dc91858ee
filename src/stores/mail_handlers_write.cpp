// Single changes of the mail handlers store, each alone on its own handle.
#include "stores/mail_handlers_store.h"

#include "runtime/log.h"
#include "stores/mail_handlers_sql.h"
#include "stores/mail_handlers_statement.h"
#include "stores/mail_handlers_write_steps.h"
#include "stores/store_access.h"

#include <syslog.h>

namespace {

int state_value(HandlerState state) {
    return state == HandlerState::Enabled ? 1 : 0;
}

// What identifies one address's handler row.
MailHandlerRecord address_handler_key(const std::string& name, int type, const std::string& address, int queue) {
    MailHandlerRecord record;
    record.name = name;
    record.type = type;
    record.address = address;
    record.queue = queue;
    return record;
}

// Runs a statement with one text parameter, with the messages of the
// store's generic actions.
int run_generic_action(const char* sql, const std::string& param) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    crelm::SqliteStatement statement;
    if (prepare_store_statement(db.get(), sql, statement) != 0)
        return -1;
    if (sqlite3_bind_text(statement.get(), 1, param.c_str(), static_cast<int>(param.size()), SQLITE_STATIC) !=
        SQLITE_OK) {
        log_message(LOG_ERR, "Unable to bind parameter param to query: %s", sqlite_error_text(db.get()));
        return -1;
    }
    if (sqlite_step_with_retry(statement.get()) != SQLITE_DONE) {
        log_message(LOG_ERR, "Unable to execute do action on handlers database: %s", sqlite_error_text(db.get()));
        return -1;
    }
    return 0;
}

}  // namespace

int insert_mail_handler(sqlite3* db, const MailHandlerRecord& record) {
    const std::string context = stored_handler_context(record);
    return run_handler_change(db, mail_handlers_sql::kInsert, HandlerQuery::Insert,
                              {{"'priority'", record.priority},
                               {"'name'", record.name},
                               {"'type'", record.type},
                               {"'address'", record.address},
                               {"'queue'", record.queue},
                               {"'executable'", record.executable},
                               {"'context'", context},
                               {"'protect_on_restore'", record.protect_on_restore ? 1 : 0},
                               {"'enabled'", record.enabled ? 1 : 0}});
}

int clone_mail_handler(sqlite3* db, const MailHandlerRecord& record, const std::string& new_address) {
    return run_handler_change(db, mail_handlers_sql::kCloneRow, HandlerQuery::Insert,
                              {{"new 'address'", new_address},
                               {"'address'", record.address},
                               {"'name'", record.name},
                               {"'type'", record.type},
                               {"'queue'", record.queue}});
}

int delete_address_mail_handler(sqlite3* db, const MailHandlerRecord& record) {
    return run_handler_change(db, mail_handlers_sql::kDeleteByNameTypeAddressQueue, HandlerQuery::Delete,
                              {{"'name'", record.name},
                               {"'type'", record.type},
                               {"'address'", record.address},
                               {"'queue'", record.queue}});
}

int update_address_mail_handler_state(sqlite3* db, const MailHandlerRecord& record, HandlerState state) {
    return run_handler_change(db, mail_handlers_sql::kUpdateEnabledForAddress, HandlerQuery::Update,
                              {{"'enabled'", state_value(state)},
                               {"'name'", record.name},
                               {"'type'", record.type},
                               {"'queue'", record.queue},
                               {"'address'", record.address}});
}

int add_mail_handler(const MailHandlerRecord& record) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return insert_mail_handler(db.get(), record);
}

int remove_mail_handler(const std::string& name, int type, int queue) {
    return run_handler_change_alone(mail_handlers_sql::kDeleteByNameTypeQueue, HandlerQuery::Delete,
                                    {{"'name'", name}, {"'type'", type}, {"'queue'", queue}});
}

int remove_address_mail_handler(const std::string& name, int type, const std::string& address, int queue) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return delete_address_mail_handler(db.get(), address_handler_key(name, type, address, queue));
}

int remove_mail_handlers_of_address(const std::string& address) {
    return run_generic_action(mail_handlers_sql::kDeleteByAddress, address);
}

int remove_mail_handlers_named(const std::string& name) {
    return run_generic_action(mail_handlers_sql::kDeleteByName, name);
}

int set_mail_handler_state(const std::string& name, int type, int queue, HandlerState state) {
    return run_handler_change_alone(
        mail_handlers_sql::kUpdateEnabled, HandlerQuery::Update,
        {{"'enabled'", state_value(state)}, {"'name'", name}, {"'type'", type}, {"'queue'", queue}});
}

int set_address_mail_handler_state(const std::string& name, int type, int queue, const std::string& address,
                                   HandlerState state) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    return update_address_mail_handler_state(db.get(), address_handler_key(name, type, address, queue), state);
}

int set_mail_handlers_state_by_name(const std::string& name, HandlerState state) {
    return run_handler_change_alone(mail_handlers_sql::kUpdateEnabledByName, HandlerQuery::Update,
                                    {{"'enabled'", state_value(state)}, {"'name'", name}});
}

int rename_mail_handlers_address(const std::string& old_address, const std::string& new_address) {
    return run_handler_change_alone(mail_handlers_sql::kRenameAddress, HandlerQuery::Update,
                                    {{"new 'address'", new_address}, {"old 'address'", old_address}});
}
