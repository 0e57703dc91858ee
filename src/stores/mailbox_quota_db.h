// The mailbox quota store: one row per mailbox (domain, mailbox, quota text)
// in the SQLite table mailbox_quota.
//
// Every operation opens the database, does its work in one transaction and
// closes it again; nothing is kept open between operations. Failures are
// logged at error level and never thrown. The write operations are lenient:
// they return false only when their own statement (the REPLACE, DELETE or
// UPDATE) fails to step, or when the transaction cannot be ended; any earlier
// failure (open, begin, prepare, bind) is logged and reported as true so that
// the command carries on. Nothing of a failed operation reaches the file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace crelm::mail {

// One mailbox of a bulk quota write.
struct MailboxQuota {
    std::string mailbox;
    std::int64_t quota = -1;  // bytes; negative: use the call's default quota
};

enum class KeepOwner { No, Yes };

class MailboxQuotaDb {
public:
    static constexpr const char* kDefaultPath = "/var/lib/crelm/mail/userdb/userdb.db";

    // An empty path selects kDefaultPath.
    explicit MailboxQuotaDb(std::string path = "");

    const std::string& path() const { return path_; }

    // Stores quota bytes (negative as 0) for domain/mailbox, replacing any
    // row of that mailbox. Lenient result, see above.
    bool setQuota(const std::string& domain, const std::string& mailbox, std::int64_t quota);

    // Stores every entry in list order in one transaction; an entry's
    // negative quota is replaced by default_quota (itself stored as 0 when
    // negative). An empty list succeeds. Lenient result, see above.
    bool setQuotas(const std::string& domain, const std::vector<MailboxQuota>& entries, std::int64_t default_quota);

    // Deletes the row of domain/mailbox. Lenient result, see above.
    bool removeMailbox(const std::string& domain, const std::string& mailbox);

    // Deletes every row of domain (none is not an error). Lenient result.
    bool removeDomain(const std::string& domain);

    // Renames the mailbox of one row. Lenient result, see above.
    bool renameMailbox(const std::string& domain, const std::string& old_mailbox, const std::string& new_mailbox);

    // Moves every row of old_domain to new_domain. Lenient result.
    bool renameDomain(const std::string& old_domain, const std::string& new_domain);

    // The stored quota in bytes (digits times the unit B, KB, MB, GB or TB;
    // 0 for an unknown unit), or -1 when the database cannot be opened
    // read-only, there is no such row, or the text has no digits or is out
    // of range (logged as "Failed to parse quota value: <reason>").
    std::int64_t getQuota(const std::string& domain, const std::string& mailbox);

    // Whether the store has a row for the mailbox; nullopt when it cannot be
    // opened read-only or read.
    std::optional<bool> hasMailbox(const std::string& domain, const std::string& mailbox);

    // Deletes the database file and creates it anew with the empty table,
    // then (unless keep_owner is Yes) gives it to user and group popuser.
    // Returns true on success, false after logging the failure.
    bool recreate(KeepOwner keep_owner);

private:
    std::string path_;
};

}  // namespace crelm::mail
