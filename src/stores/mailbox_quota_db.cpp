#include "stores/mailbox_quota_db.h"

#include <utility>

#include "runtime/log.h"
#include "stores/mailbox_quota_text.h"
#include "stores/mailbox_quota_write.h"

namespace crelm::mail {
namespace {

constexpr const char* kReplaceQuota = "REPLACE INTO mailbox_quota (domain_name, mailbox_name, quota) VALUES (?, ?, ?)";
constexpr const char* kDeleteMailbox = "DELETE FROM mailbox_quota WHERE domain_name = ? AND mailbox_name = ?";
constexpr const char* kDeleteDomain = "DELETE FROM mailbox_quota WHERE domain_name = ?";
constexpr const char* kRenameMailbox =
    "UPDATE mailbox_quota SET mailbox_name = ? WHERE domain_name = ? AND mailbox_name = ?";
constexpr const char* kRenameDomain = "UPDATE mailbox_quota SET domain_name = ? WHERE domain_name = ?";

QuotaWriteOutcome replace_quota(QuotaStatement& replace, const std::string& domain, const std::string& mailbox,
                                std::int64_t quota) {
    const std::string quota_value = quota_text(quota);
    return replace.run(
        {{domain, "domain_name"}, {mailbox, "mailbox_name"}, {quota_value, "quota"}}, [&](const char* reason) {
            log_message(3, "Unable to set quota for '%s@%s': %s", mailbox.c_str(), domain.c_str(), reason);
        });
}

}  // namespace

MailboxQuotaDb::MailboxQuotaDb(std::string path) : path_(path.empty() ? kDefaultPath : std::move(path)) {}

bool MailboxQuotaDb::setQuota(const std::string& domain, const std::string& mailbox, std::int64_t quota) {
    return run_quota_write(path_, [&](sqlite3* db) {
        QuotaStatement replace(db, kReplaceQuota);
        return replace_quota(replace, domain, mailbox, quota);
    });
}

bool MailboxQuotaDb::setQuotas(const std::string& domain, const std::vector<MailboxQuota>& entries,
                               std::int64_t default_quota) {
    return run_quota_write(path_, [&](sqlite3* db) {
        QuotaStatement replace(db, kReplaceQuota);
        for (const MailboxQuota& entry : entries) {
            const std::int64_t quota = entry.quota >= 0 ? entry.quota : default_quota;
            const QuotaWriteOutcome outcome = replace_quota(replace, domain, entry.mailbox, quota);
            if (outcome != QuotaWriteOutcome::Done)
                return outcome;
        }
        return QuotaWriteOutcome::Done;
    });
}

bool MailboxQuotaDb::removeMailbox(const std::string& domain, const std::string& mailbox) {
    return run_quota_write(path_, [&](sqlite3* db) {
        return QuotaStatement(db, kDeleteMailbox)
            .run({{domain, "domain_name"}, {mailbox, "mailbox_name"}}, [&](const char* reason) {
                log_message(3, "Unable to remove quota for '%s@%s': %s", mailbox.c_str(), domain.c_str(), reason);
            });
    });
}

bool MailboxQuotaDb::removeDomain(const std::string& domain) {
    return run_quota_write(path_, [&](sqlite3* db) {
        return QuotaStatement(db, kDeleteDomain).run({{domain, "domain_name"}}, [&](const char* reason) {
            log_message(3, "Unable to remove quota for '%s': %s", domain.c_str(), reason);
        });
    });
}

// The new name is bound first (it is what SET writes); the old name, bound
// last, is the one that bind failure messages call old_*_name.
bool MailboxQuotaDb::renameMailbox(const std::string& domain, const std::string& old_mailbox,
                                   const std::string& new_mailbox) {
    return run_quota_write(path_, [&](sqlite3* db) {
        return QuotaStatement(db, kRenameMailbox)
            .run({{new_mailbox, "mailbox_name"}, {domain, "domain_name"}, {old_mailbox, "old_mailbox_name"}},
                 [&](const char* reason) {
                     log_message(3, "Unable to rename mailbox '%s@%s' to '%s@%s': %s", old_mailbox.c_str(),
                                 domain.c_str(), new_mailbox.c_str(), domain.c_str(), reason);
                 });
    });
}

bool MailboxQuotaDb::renameDomain(const std::string& old_domain, const std::string& new_domain) {
    return run_quota_write(path_, [&](sqlite3* db) {
        return QuotaStatement(db, kRenameDomain)
            .run({{new_domain, "domain_name"}, {old_domain, "old_domain_name"}}, [&](const char* reason) {
                log_message(3, "Unable to rename domain '%s' to '%s': %s", old_domain.c_str(), new_domain.c_str(),
                            reason);
            });
    });
}

}  // namespace crelm::mail
