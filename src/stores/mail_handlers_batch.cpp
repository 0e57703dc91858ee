// Batch operations of the mail handlers store: the affected rows are read
// through a read-only handle first, then changed one by one inside a single
// transaction, so that a failure part-way leaves the store as it was.
#include "stores/mail_handlers_store.h"

#include "runtime/log.h"
#include "stores/mail_handlers_columns.h"
#include "stores/mail_handlers_sql.h"
#include "stores/mail_handlers_statement.h"
#include "stores/mail_handlers_write_steps.h"
#include "stores/store_access.h"

#include <syslog.h>

#include <algorithm>
#include <cctype>
#include <functional>

namespace {

using HandlerAction = std::function<int(sqlite3*, const MailHandlerRecord&)>;

enum class TransactionEdge { Begin, End };

int step_transaction_edge(sqlite3* db, TransactionEdge edge) {
    crelm::SqliteStatement statement;
    const char* sql = edge == TransactionEdge::Begin ? "BEGIN TRANSACTION;" : "END TRANSACTION;";
    if (prepare_store_statement(db, sql, statement) != 0)
        return -1;
    if (sqlite_step_with_retry(statement.get()) == SQLITE_DONE)
        return 0;
    log_message(LOG_ERR,
                edge == TransactionEdge::Begin ? "Unable to begin sqlite transaction: %s"
                                               : "Unable to end sqlite transaction: %s",
                sqlite_error_text(db));
    return -1;
}

// Applies action to every record in list order inside one transaction. A
// failed action leaves the transaction open; closing the handle abandons it.
int apply_to_mail_handlers(const MailHandlerList& records, const HandlerAction& action) {
    crelm::SqliteDb db;
    if (open_store_db(mail_handlers_db_path(), SqliteOpenMode::ReadWrite, db) != 0)
        return -1;
    if (step_transaction_edge(db.get(), TransactionEdge::Begin) != 0)
        return -1;
    for (const MailHandlerRecord& record : records) {
        if (action(db.get(), record) != 0)
            return -1;
    }
    return step_transaction_edge(db.get(), TransactionEdge::End);
}

int select_handlers_of_address(const std::string& address, MailHandlerList& list) {
    return select_handler_rows(mail_handlers_sql::kSelectByAddressShort, {{"'address'", address}},
                               handler_columns::kShortOfAddress, HandlerSelection::Listing, address, list);
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The LIKE selection also finds longer domains ("@example.com.au" for
// "@example.com"); only addresses that end in "@domain" belong to it.
int select_handlers_of_domain(const std::string& domain, MailHandlerList& list) {
    // Appended rather than concatenated: GCC 12 misreports operator+ on a literal (-Wrestrict at -O3).
    std::string suffix("@");
    suffix += lower_case(domain);
    MailHandlerList found;
    if (select_handler_rows(mail_handlers_sql::kSelectContainingShort, {{"'address'", suffix}},
                            handler_columns::kShortContaining, HandlerSelection::Listing, {}, found) != 0)
        return -1;
    for (MailHandlerRecord& record : found) {
        if (lower_case(record.address).ends_with(suffix))
            list.push_back(std::move(record));
    }
    return 0;
}

// "info@old.example" becomes "info@new.example".
std::string address_in_domain(const std::string& address, const std::string& domain) {
    return address.substr(0, address.rfind('@') + 1) + domain;
}

int clone_selected(const MailHandlerList& records, const std::function<std::string(const std::string&)>& target) {
    // The selection reads only some columns; the copy is made from the stored
    // row so that none is lost (the protected flag among them).
    const auto insert_copy = [&](sqlite3* db, const MailHandlerRecord& record) {
        return clone_mail_handler(db, record, target(record.address));
    };
    if (apply_to_mail_handlers(records, insert_copy) != 0) {
        log_message(LOG_ERR, "Unable to add records into handlers database");
        return -1;
    }
    return 0;
}

int switch_selected(const MailHandlerList& records, HandlerState state) {
    const auto update = [state](sqlite3* db, const MailHandlerRecord& record) {
        return update_address_mail_handler_state(db, record, state);
    };
    if (apply_to_mail_handlers(records, update) != 0) {
        log_message(LOG_ERR, "Unable to enable or disable mail handlers");
        return -1;
    }
    return 0;
}

}  // namespace

int clone_mail_handlers(const std::string& old_address, const std::string& new_address) {
    MailHandlerList records;
    if (select_handlers_of_address(old_address, records) != 0) {
        log_message(LOG_ERR, "Unable to clone handlers data record");
        return -1;
    }
    return clone_selected(records, [&](const std::string&) { return new_address; });
}

int set_mail_handlers_state_of_address(const std::string& address, HandlerState state) {
    MailHandlerList records;
    if (select_handlers_of_address(address, records) != 0) {
        log_message(LOG_ERR, "Unable to select mail handlers by address '%s'", address.c_str());
        return -1;
    }
    return switch_selected(records, state);
}

int clone_domain_mail_handlers(const std::string& old_domain, const std::string& new_domain) {
    MailHandlerList records;
    if (select_handlers_of_domain(old_domain, records) != 0) {
        log_message(LOG_ERR, "Unable to clone handlers data record");
        return -1;
    }
    return clone_selected(records, [&](const std::string& address) { return address_in_domain(address, new_domain); });
}

int remove_domain_mail_handlers(const std::string& domain) {
    MailHandlerList records;
    if (select_handlers_of_domain(domain, records) != 0) {
        log_message(LOG_ERR, "Unable to select mail handlers by address '%s'", ("@" + domain).c_str());
        return -1;
    }
    return apply_to_mail_handlers(records, delete_address_mail_handler);
}

int set_domain_mail_handlers_state(const std::string& domain, HandlerState state) {
    MailHandlerList records;
    if (select_handlers_of_domain(domain, records) != 0) {
        log_message(LOG_ERR, "Unable to select mail handlers by address '%s'", ("@" + domain).c_str());
        return -1;
    }
    return switch_selected(records, state);
}
