// Reading one user of the mail authentication store, through a read-only
// handle.
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

struct DomainRow {
    int id = 0;
    int status = 0;
};

bool is_set(const char* column) {
    return column != nullptr && column[0] != '\0';
}

// What looking up one user found. A missing row is told apart from a failure
// so that a caller for whom "no row" means "nothing to do" can say so.
enum class UserLookup { found, no_domain, no_user, failed };

UserLookup read_domain_row(sqlite3* db, const std::string& domain, DomainRow& row) {
    crelm::SqliteStatement statement;
    if (prepare_auth_statement(db, mail_auth_sql::kSelectDomain, {{AuthParam::DomainName, &domain}}, statement) != 0)
        return UserLookup::failed;
    const int rc = sqlite_step_with_retry(statement.get());
    if (rc == SQLITE_ROW) {
        row.id = sqlite3_column_int(statement.get(), 0);
        row.status = sqlite3_column_int(statement.get(), 1);
        return UserLookup::found;
    }
    if (rc == SQLITE_DONE)
        return UserLookup::no_domain;
    log_message(LOG_ERR, "Unable to execute the domain selection query: %s", sqlite_error_text(db));
    return UserLookup::failed;
}

// Fills user from a row of "SELECT name, userPassword, cmusaslsecretPLAIN,
// status"; -1 when neither password column is set.
int take_user_row(sqlite3_stmt* statement, const std::string& address, MailAuthUser& user) {
    const char* name = column_text_or_null(statement, 0);
    const char* enciphered = column_text_or_null(statement, 1);
    const char* stored_form = column_text_or_null(statement, 2);
    if (!is_set(enciphered) && !is_set(stored_form)) {
        log_message(LOG_ERR, "NULL password fields (both plain and encrypted) for user %s, skipped", address.c_str());
        return -1;
    }
    user.name = name != nullptr ? name : "";
    user.password = is_set(enciphered) ? enciphered : stored_form;
    user.flags = is_set(enciphered) ? 0 : kMailAuthPasswordInStoredForm;
    if (sqlite3_column_int(statement, 3) != 0)
        user.flags |= kMailAuthUserDisabled;
    return 0;
}

UserLookup read_user_row(sqlite3* db, const DomainRow& domain_row, const std::string& mailname,
                         const std::string& domain, MailAuthUser& user) {
    crelm::SqliteStatement statement;
    if (prepare_auth_statement(db, mail_auth_sql::kSelectUser,
                               {{AuthParam::DomainId, domain_row.id}, {AuthParam::MailName, &mailname}},
                               statement) != 0)
        return UserLookup::failed;
    const int rc = sqlite_step_with_retry(statement.get());
    if (rc == SQLITE_ROW)
        return take_user_row(statement.get(), auth_address(mailname, domain), user) == 0 ? UserLookup::found
                                                                                          : UserLookup::failed;
    if (rc == SQLITE_DONE)
        return UserLookup::no_user;
    log_message(LOG_ERR, "Unable to execute the user selection query: %s", sqlite_error_text(db));
    return UserLookup::failed;
}

// The user's row with the domain's status folded into its flags; failures
// are logged, a missing row is only told.
UserLookup look_up_user(const std::string& domain, const std::string& mailname, MailAuthUser& user) {
    crelm::SqliteDb db;
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadOnly, db) != 0)
        return UserLookup::failed;
    DomainRow domain_row;
    const UserLookup domain_found = read_domain_row(db.get(), domain, domain_row);
    if (domain_found != UserLookup::found)
        return domain_found;
    MailAuthUser found;
    const UserLookup user_found = read_user_row(db.get(), domain_row, mailname, domain, found);
    if (user_found != UserLookup::found)
        return user_found;
    if (domain_row.status != 0)
        found.flags |= kMailAuthDomainDisabled;
    user = std::move(found);
    return UserLookup::found;
}

// The plain password of a row of the password query: userPassword
// deciphered, else cmusaslsecretPLAIN as stored.
int take_password_row(sqlite3_stmt* statement, const std::string& mailname, const std::string& domain,
                      MailAuthPassword& result) {
    const char* enciphered = column_text_or_null(statement, 0);
    const char* stored_form = column_text_or_null(statement, 1);
    if (!is_set(enciphered) && !is_set(stored_form)) {
        log_message(LOG_ERR, "NULL password fields (both plain and encrypted) for user %s, skipped",
                    auth_address(mailname, domain).c_str());
        return -1;
    }
    if (is_set(enciphered)) {
        std::optional<std::string> plain =
            apply_password_cipher(PasswordCipherDirection::Decrypt, enciphered, mailname, domain);
        if (!plain)
            return -1;
        result.password = std::move(*plain);
    } else {
        result.password = stored_form;
    }
    result.user_disabled = sqlite3_column_int(statement, 2) != 0;
    result.domain_disabled = sqlite3_column_int(statement, 3) != 0;
    return 0;
}

}  // namespace

int get_mail_auth_user(const std::string& domain, const std::string& mailname, MailAuthUser& user) {
    switch (look_up_user(domain, mailname, user)) {
    case UserLookup::found:
        return 0;
    case UserLookup::no_domain:
        log_message(LOG_ERR, "No such domain '%s' in the mail authentication DB", domain.c_str());
        return -1;
    case UserLookup::no_user:
        log_message(LOG_ERR, "No such user '%s' in mail authorization database",
                    auth_address(mailname, domain).c_str());
        return -1;
    case UserLookup::failed:
        break;
    }
    return -1;
}

int find_mail_auth_user(const std::string& domain, const std::string& mailname, MailAuthUser& user) {
    switch (look_up_user(domain, mailname, user)) {
    case UserLookup::found:
        return 1;
    case UserLookup::no_domain:
    case UserLookup::no_user:
        return 0;
    case UserLookup::failed:
        break;
    }
    return -1;
}

int get_mail_auth_user_password(const std::string& mailname, const std::string& domain, MailAuthPassword& result) {
    crelm::SqliteDb db;
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadOnly, db) != 0)
        return -1;
    crelm::SqliteStatement statement;
    if (prepare_auth_statement(db.get(), mail_auth_sql::kSelectUserPassword,
                               {{AuthParam::MailName, &mailname}, {AuthParam::DomainName, &domain}}, statement) != 0)
        return -1;
    const int rc = sqlite_step_with_retry(statement.get());
    if (rc == SQLITE_ROW)
        return take_password_row(statement.get(), mailname, domain, result);
    const std::string address = auth_address(mailname, domain);
    if (rc == SQLITE_DONE)
        log_message(LOG_ERR, "No such user '%s' in mail authorization database", address.c_str());
    else
        log_message(LOG_ERR, "Unable to get passwd for mailname: %s: %s", address.c_str(),
                    sqlite_error_text(db.get()));
    return -1;
}
