// Reading one mailbox's quota back from the mailbox quota store.
#include "stores/mailbox_quota_db.h"
#include "stores/mailbox_quota_text.h"
#include "stores/mailbox_quota_write.h"
#include "stores/sqlite_retry.h"
#include "stores/store_access.h"

namespace crelm::mail {
namespace {

constexpr const char* kSelectQuota = "SELECT quota FROM mailbox_quota WHERE domain_name = ? AND mailbox_name = ?";

}  // namespace

std::optional<bool> MailboxQuotaDb::hasMailbox(const std::string& domain, const std::string& mailbox) {
    SqliteDb db;
    SqliteStatement statement;
    if (open_store_db(path_, SqliteOpenMode::ReadOnly, db) != 0 ||
        prepare_store_statement(db.get(), kSelectQuota, statement) != 0 ||
        !bind_quota_text(db.get(), statement.get(), {{domain, "domain_name"}, {mailbox, "mailbox_name"}}))
        return std::nullopt;
    const int step = sqlite_step_with_retry(statement.get());
    if (step != SQLITE_ROW && step != SQLITE_DONE)
        return std::nullopt;
    return step == SQLITE_ROW;
}

std::int64_t MailboxQuotaDb::getQuota(const std::string& domain, const std::string& mailbox) {
    SqliteDb db;
    SqliteStatement statement;
    if (open_store_db(path_, SqliteOpenMode::ReadOnly, db) != 0 ||
        prepare_store_statement(db.get(), kSelectQuota, statement) != 0 ||
        !bind_quota_text(db.get(), statement.get(), {{domain, "domain_name"}, {mailbox, "mailbox_name"}}))
        return -1;
    if (sqlite_step_with_retry(statement.get()) != SQLITE_ROW || sqlite3_column_type(statement.get(), 0) == SQLITE_NULL)
        return -1;
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), 0));
    return parse_quota_text(std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), 0))));
}

}  // namespace crelm::mail
