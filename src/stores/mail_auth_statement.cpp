#include "stores/mail_auth_statement.h"

#include "runtime/log.h"
#include "stores/store_access.h"

#include <syslog.h>

namespace {

int bind_value(sqlite3_stmt* statement, int index, const AuthBinding& binding) {
    if (const int* number = std::get_if<int>(&binding.value))
        return sqlite3_bind_int(statement, index, *number);
    return sqlite3_bind_text(statement, index, std::get<const std::string*>(binding.value)->c_str(), -1,
                             SQLITE_STATIC);
}

void log_text_bind_failure(AuthParam param, const char* value, const char* sql, const char* error) {
    switch (param) {
    case AuthParam::DomainName:
        log_message(LOG_ERR, "Unable to bind parameter domain name '%s' to  SQL statement for query '%s': %s", value,
                    sql, error);
        break;
    case AuthParam::NewMailName:
        log_message(LOG_ERR, "Unable to bind parameter new mailname '%s' to  SQL statement for query '%s': %s",
                    value, sql, error);
        break;
    case AuthParam::OldMailName:
        log_message(LOG_ERR, "Unable to bind parameter old mailname '%s' to  SQL statement for query '%s': %s",
                    value, sql, error);
        break;
    case AuthParam::Password:
        // The password itself never reaches the log.
        log_message(LOG_ERR, "Unable to bind parameter password to  SQL statement for query '%s': %s", sql, error);
        break;
    default:
        log_message(LOG_ERR, "Unable to bind parameter mailname '%s' to  SQL statement for query '%s': %s", value,
                    sql, error);
        break;
    }
}

void log_bind_failure(const AuthBinding& binding, const char* sql, const char* error) {
    if (const int* number = std::get_if<int>(&binding.value)) {
        if (binding.param == AuthParam::Status)
            log_message(LOG_ERR, "Unable to bind parameter status %d to  SQL statement for query '%s': %s", *number,
                        sql, error);
        else
            log_message(LOG_ERR, "Unable to bind parameter domain id %d to  SQL statement for query '%s': %s",
                        *number, sql, error);
        return;
    }
    log_text_bind_failure(binding.param, std::get<const std::string*>(binding.value)->c_str(), sql, error);
}

}  // namespace

int prepare_auth_statement(sqlite3* db, const char* sql, AuthBindings bindings, crelm::SqliteStatement& statement) {
    if (prepare_store_statement(db, sql, statement) != 0)
        return -1;
    int index = 1;
    for (const AuthBinding& binding : bindings) {
        if (bind_value(statement.get(), index++, binding) != SQLITE_OK) {
            log_bind_failure(binding, sql, sqlite_error_text(db));
            return -1;
        }
    }
    return 0;
}

std::string auth_address(const std::string& mailname, const std::string& domain) {
    return domain.empty() ? mailname : mailname + "@" + domain;
}
