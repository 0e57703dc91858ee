// The schema batch of the mailbox quota store, as its re-creation runs it.
#pragma once

namespace mailbox_quota_sql {

inline constexpr const char* kSchema =
    "BEGIN TRANSACTION;"
    "CREATE TABLE IF NOT EXISTS mailbox_quota (domain_name TEXT NOT NULL,mailbox_name TEXT NOT NULL,"
    "quota TEXT NOT NULL,PRIMARY KEY (domain_name, mailbox_name));"
    "COMMIT;";

}  // namespace mailbox_quota_sql
