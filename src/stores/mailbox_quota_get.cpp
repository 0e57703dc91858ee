// Reading one mailbox's quota back from the mailbox quota store.
#include "runtime/log.h"
#include "stores/mailbox_quota_db.h"
#include "stores/mailbox_quota_text.h"
#include "stores/sqlite_retry.h"

namespace crelm::mail {
namespace {

constexpr const char* kSelectQuota = "SELECT quota FROM mailbox_quota WHERE domain_name = ? AND mailbox_name = ?";

bool bind_text_logged(sqlite3* db, sqlite3_stmt* statement, int index, const std::string& value, const char* name) {
    if (sqlite3_bind_text64(statement, index, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8) == SQLITE_OK)
        return true;
    log_message(3, "Unable to bind parameter %s: %s", name, sqlite_error_text(db));
    return false;
}

}  // namespace

std::int64_t MailboxQuotaDb::getQuota(const std::string& domain, const std::string& mailbox) {
    SqliteDb db;
    if (sqlite_open_db(path_, SqliteOpenMode::ReadOnly, db) != SQLITE_OK) {
        log_message(3, "Unable to open database(readonly) %s: %s", path_.c_str(), sqlite_error_text(db.get()));
        return -1;
    }
    SqliteStatement statement;
    if (sqlite_prepare_with_retry(db.get(), kSelectQuota, statement) != SQLITE_OK) {
        log_message(3, "Unable to prepare SQL statement for query '%s': %s", kSelectQuota, sqlite_error_text(db.get()));
        return -1;
    }
    if (!bind_text_logged(db.get(), statement.get(), 1, domain, "domain_name") ||
        !bind_text_logged(db.get(), statement.get(), 2, mailbox, "mailbox_name"))
        return -1;
    if (sqlite_step_with_retry(statement.get()) != SQLITE_ROW || sqlite3_column_type(statement.get(), 0) == SQLITE_NULL)
        return -1;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
    return parse_quota_text(std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), 0))));
}

}  // namespace crelm::mail
