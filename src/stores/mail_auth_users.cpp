// The user rows of the mail authentication store.
#include "stores/mail_auth_store.h"

#include "runtime/log.h"
#include "stores/mail_auth_cipher.h"
#include "stores/mail_auth_paths.h"
#include "stores/mail_auth_sql.h"
#include "stores/mail_auth_write.h"
#include "stores/store_access.h"

#include <syslog.h>

#include <optional>

namespace {

// Opens the store for a change of a user row and gives the row's domain id;
// -1 after logging when the store cannot be opened or the domain is unknown.
int open_for_user_change(const std::string& domain, crelm::SqliteDb& db) {
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    const int id = get_mail_domain_id(domain, db.get(), 0);
    if (id < 0)
        log_message(LOG_ERR, "Unable to get domain id: %s", domain.c_str());
    return id;
}

}  // namespace

int add_mail_auth_user(const std::string& mailname, const std::string& domain, const std::string& password,
                       int flags) {
    crelm::SqliteDb db;
    if (open_store_db(mail_auth_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    const int domain_id = get_mail_domain_id(domain, db.get(), flags);
    if (domain_id < 0) {
        log_message(LOG_ERR, "Unable to get mail domain id for: %s", domain.c_str());
        return -1;
    }
    const bool stored_form = (flags & kMailAuthPasswordInStoredForm) != 0;
    const int status = (flags & kMailAuthUserDisabled) != 0 ? 1 : 0;
    return run_auth_write(db.get(), stored_form ? mail_auth_sql::kInsertUserStoredPassword : mail_auth_sql::kInsertUser,
                          {{AuthParam::MailName, &mailname},
                           {AuthParam::Password, &password},
                           {AuthParam::Status, status},
                           {AuthParam::DomainId, domain_id}},
                          [&](const char* error) {
                              log_message(LOG_ERR, "Unable to execute the mail authorization registration query: %s: %s",
                                          auth_address(mailname, domain).c_str(), error);
                          });
}

int set_mail_auth_password(const std::string& mailname, const std::string& domain, const std::string& password,
                           int flags) {
    if (password.empty())
        return remove_mail_auth_user(mailname, domain);
    if ((flags & kMailAuthPasswordInStoredForm) != 0)
        return add_mail_auth_user(mailname, domain, password, flags);
    const std::optional<std::string> stored =
        apply_password_cipher(PasswordCipherDirection::Encrypt, password, mailname, domain);
    if (!stored)
        return -1;
    return add_mail_auth_user(mailname, domain, *stored, flags);
}

int remove_mail_auth_user(const std::string& mailname, const std::string& domain) {
    crelm::SqliteDb db;
    const int domain_id = open_for_user_change(domain, db);
    if (domain_id < 0)
        return -1;
    return run_auth_write(db.get(), mail_auth_sql::kDeleteUser,
                          {{AuthParam::MailName, &mailname}, {AuthParam::DomainId, domain_id}},
                          [&](const char* error) {
                              log_message(LOG_ERR, "Unable to execute the mail authorization removal query: %s: %s",
                                          auth_address(mailname, domain).c_str(), error);
                          });
}

int rename_mail_auth_user(const std::string& domain, const std::string& old_name, const std::string& new_name) {
    crelm::SqliteDb db;
    const int domain_id = open_for_user_change(domain, db);
    if (domain_id < 0)
        return -1;
    return run_auth_write(
        db.get(), mail_auth_sql::kRenameUser,
        {{AuthParam::NewMailName, &new_name}, {AuthParam::OldMailName, &old_name}, {AuthParam::DomainId, domain_id}},
        [&](const char* error) {
            log_message(LOG_ERR, "Unable to execute the mail authorization renaming query: %s: %s",
                        auth_address(old_name, domain).c_str(), error);
        });
}

int move_mail_auth_user(const std::string& old_domain, const std::string& old_name, const std::string& new_domain,
                        const std::string& new_name) {
    MailAuthUser user;
    const int found = find_mail_auth_user(old_domain, old_name, user);
    if (found < 0) {
        log_message(LOG_ERR, "Unable to get users list from MTA password database");
        return -1;
    }
    // Only a mail name with a mailbox has a row; the copy of one without is
    // done when nothing is written.
    if (found == 0)
        return 0;
    return add_mail_auth_user(new_name, new_domain, user.password, user.flags);
}
