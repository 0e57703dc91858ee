// The domain rows of the mail authentication store.
#include "stores/mail_auth_store.h"

#include "runtime/log.h"
#include "stores/mail_auth_sql.h"
#include "stores/mail_auth_write.h"

#include <syslog.h>

#include <string>

namespace {

// The id of an existing domain row: 1 found, 0 none, -1 failed.
int find_domain_id(const std::string& domain, sqlite3* db, int& id) {
    crelm::SqliteStatement statement;
    if (prepare_auth_statement(db, mail_auth_sql::kSelectDomainId, {{AuthParam::DomainName, &domain}}, statement) !=
        0)
        return -1;
    const int rc = sqlite_step_with_retry(statement.get());
    if (rc == SQLITE_ROW) {
        id = sqlite3_column_int(statement.get(), 0);
        return 1;
    }
    if (rc == SQLITE_DONE)
        return 0;
    log_message(LOG_ERR, "Unable to execute the domain selection query: %s", sqlite_error_text(db));
    return -1;
}

// The new row's id, or -1 with the store's error text in error.
int insert_domain(const std::string& domain, sqlite3* db, int flags, std::string& error) {
    const int status =
        (flags & kMailAuthDomainDisabled) != 0 ? kMailAuthDomainStatusDisabled : kMailAuthDomainStatusEnabled;
    const auto keep = [&](const char* text) { error = text; };
    if (run_auth_write(db, mail_auth_sql::kInsertDomain, {{AuthParam::DomainName, &domain}, {AuthParam::Status, status}},
                       keep) != 0)
        return -1;
    return static_cast<int>(sqlite3_last_insert_rowid(db));
}

}  // namespace

// Two panels may both find no row for a new domain and both insert one; the
// second insert then fails on the unique name. The row the other panel made
// is the one wanted, so it is looked up again before the failure counts.
int get_mail_domain_id(const std::string& domain, sqlite3* db, int flags) {
    int id = -1;
    const int found = find_domain_id(domain, db, id);
    if (found < 0)
        return -1;
    if (found == 1)
        return id;
    std::string error;
    const int inserted = insert_domain(domain, db, flags, error);
    if (inserted >= 0)
        return inserted;
    if (find_domain_id(domain, db, id) == 1)
        return id;
    log_message(LOG_ERR, "Unable to execute the mail domain authentication registration query: %s", error.c_str());
    return -1;
}

int set_mail_auth_domain_status(const std::string& domain, int status) {
    return run_auth_write_alone(mail_auth_sql::kUpdateDomainStatus,
                                {{AuthParam::Status, status}, {AuthParam::DomainName, &domain}},
                                [&](const char* error) {
                                    log_message(LOG_ERR,
                                                "Unable to execute the mail domain authorization status change "
                                                "query: %s: %s",
                                                domain.c_str(), error);
                                });
}

int rename_mail_auth_domain(const std::string& old_domain, const std::string& new_domain) {
    return run_auth_write_alone(mail_auth_sql::kRenameDomain,
                                {{AuthParam::DomainName, &new_domain}, {AuthParam::DomainName, &old_domain}},
                                [&](const char* error) {
                                    log_message(LOG_ERR,
                                                "Unable to execute the mail domain authorization name change "
                                                "query: %s: %s",
                                                old_domain.c_str(), error);
                                });
}

int remove_mail_auth_domain(const std::string& domain) {
    return run_auth_write_alone(mail_auth_sql::kDeleteDomain, {{AuthParam::DomainName, &domain}},
                                [&](const char* error) {
                                    log_message(LOG_ERR,
                                                "Unable to execute the domain mail authorization removal query: "
                                                "%s: %s",
                                                domain.c_str(), error);
                                });
}
