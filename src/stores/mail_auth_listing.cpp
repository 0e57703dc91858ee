// Listing the users of the mail authentication store with their passwords
// in plain form, through a read-only handle.
#include "stores/mail_auth_store.h"

#include "runtime/log.h"
#include "stores/mail_auth_cipher.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_sql.h"
#include "stores/mail_auth_statement.h"
#include "stores/store_access.h"

#include <syslog.h>

#include <optional>

namespace {

enum class RowOutcome { Listed, Skipped, Failed };

bool is_set(const char* column) {
    return column != nullptr && column[0] != '\0';
}

std::string listing_query(const std::string& mailname) {
    std::string query = mail_auth_sql::kListUsers;
    if (!mailname.empty())
        query += mail_auth_sql::kListUsersOfName;
    return query + mail_auth_sql::kListUsersOrder;
}

// The password of a listed row: userPassword deciphered, else
// cmusaslsecretPLAIN as stored; nullopt when the row is to be skipped.
std::optional<std::string> listed_password(sqlite3_stmt* statement, const char* address, RowOutcome& outcome) {
    const char* enciphered = column_text_or_null(statement, 1);
    const char* stored_form = column_text_or_null(statement, 2);
    outcome = RowOutcome::Skipped;
    if (is_set(enciphered)) {
        std::optional<std::string> plain =
            apply_password_cipher(PasswordCipherDirection::Decrypt, enciphered, address, "");
        if (!plain)
            outcome = RowOutcome::Failed;
        return plain;
    }
    if (is_set(stored_form))
        return std::string(stored_form);
    log_message(LOG_ERR, "empty password properties (both plain and encrypted) for user %s, skipped", address);
    return std::nullopt;
}

RowOutcome list_row(sqlite3_stmt* statement, const MailAuthUserVisitor& visit) {
    const char* address = column_text_or_null(statement, 0);
    if (!is_set(address)) {
        log_message(LOG_ERR, "NULL or empty mail address stored in the database, skipped");
        return RowOutcome::Skipped;
    }
    RowOutcome outcome = RowOutcome::Listed;
    std::optional<std::string> password = listed_password(statement, address, outcome);
    if (!password)
        return outcome;
    MailAuthListedUser user;
    user.address = address;
    user.password = std::move(*password);
    user.user_disabled = sqlite3_column_int(statement, 3) != 0;
    user.domain_disabled = sqlite3_column_int(statement, 4) != 0;
    visit(user);
    return RowOutcome::Listed;
}

}  // namespace

int list_mail_auth_users(const std::string& mailname, const MailAuthUserVisitor& visit) {
    crelm::SqliteDb db;
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadOnly, db) != 0)
        return -1;
    const std::string query = listing_query(mailname);
    crelm::SqliteStatement statement;
    if (mailname.empty() ? prepare_auth_statement(db.get(), query.c_str(), {}, statement)
                         : prepare_auth_statement(db.get(), query.c_str(), {{AuthParam::MailName, &mailname}},
                                                  statement))
        return -1;
    int result = 0;
    for (;;) {
        const int rc = sqlite_step_with_retry(statement.get());
        if (rc == SQLITE_DONE)
            return result;
        if (rc != SQLITE_ROW) {
            log_message(LOG_ERR, "Unable to execute the user selection query: %s", sqlite_error_text(db.get()));
            return -1;
        }
        if (list_row(statement.get(), visit) == RowOutcome::Failed)
            result = -1;
    }
}

int split_mail_address(const std::string& address, std::string& mailname, std::string& domain) {
    const std::string::size_type at = address.rfind('@');
    if (at == std::string::npos) {
        log_message(LOG_ERR, "Invalid mail address '%s'", address.c_str());
        return -1;
    }
    mailname = address.substr(0, at);
    domain = address.substr(at + 1);
    return 0;
}
