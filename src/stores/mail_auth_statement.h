// Preparing and binding the statements of the mail authentication store,
// with the store's bind messages. Internal to the store.
#pragma once

#include "stores/sqlite_retry.h"

#include <initializer_list>
#include <string>
#include <variant>

// The parameters the store binds, each with its own bind message.
enum class AuthParam { Status, DomainName, MailName, NewMailName, OldMailName, Password, DomainId };

struct AuthBinding {
    AuthParam param;
    std::variant<int, const std::string*> value;  // texts bound NUL-terminated, ints as integers
};

using AuthBindings = std::initializer_list<AuthBinding>;

// Prepares sql and binds bindings in order. Returns 0; on failure logs the
// prepare message or the parameter's bind message, e.g. "Unable to bind
// parameter domain name '%s' to  SQL statement for query '%s': %s", and
// returns -1.
int prepare_auth_statement(sqlite3* db, const char* sql, AuthBindings bindings, crelm::SqliteStatement& statement);

// "name@domain", or the name alone when domain is empty: the way messages
// name a mail address.
std::string auth_address(const std::string& mailname, const std::string& domain);
