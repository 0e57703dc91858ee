// Steps the store and key directory tests share: changing a store with the
// sqlite3 program, and the audit-repair-audit pattern.
#pragma once

#include <string>
#include <vector>

#include "audit/audit_fixture.h"

namespace sorvane::test {

inline const std::string kAuditAuthDb = "/var/lib/crelm/mail/auth/passwd.db";
inline const std::string kAuditAuthKey = "/var/lib/crelm/mail/auth/passwd_db_key";
inline const std::string kAuditQuotaDb = "/var/lib/crelm/mail/userdb/userdb.db";
inline const std::string kAuditHandlersDb = "/var/lib/crelm/mail/handlers/handlers.db";

// Runs the SQL script on db with the sqlite3 program, failing the test when
// it fails; its output.
std::string run_sqlite(const std::string& db, const std::string& script);

// Audits with --repair-plan, expects these "needs a person" lines (none
// when every finding has a command), runs the plan's commands and expects
// the audit clean afterwards.
void expect_repaired(const std::vector<std::string>& for_a_person = {});

// Audits with --repair-plan and expects no command, only these "needs a
// person" lines.
void expect_only_for_a_person(const std::vector<std::string>& for_a_person);

// "<uid>:<gid>" of root with group nofiles or popuser.
std::string root_nofiles();
std::string root_popuser();

}  // namespace sorvane::test
