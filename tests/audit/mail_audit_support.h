// Steps the mail name tests of the audit share: audit the server, expect
// exactly some finding lines, run the repair plan, expect it clean again.
#pragma once

#include <string>
#include <vector>

#include "audit/audit_fixture.h"

namespace sorvane::test {

// "/var/qmail/mailnames/<domain>/<name>".
std::string home_of(const std::string& name, const std::string& domain = kDomain);

// Adds a mail name without a mailbox through sorvane (extra options after
// the names), failing the test when it fails.
void add_mailname(const std::string& name, const std::vector<std::string>& extra = {});

// Takes the line out of assign and marks the table compiled.
void remove_assign_line(const std::string& line);

// Writes content at path, owner popuser, with mode.
void write_popuser_file(const std::string& path, const std::string& content, mode_t mode = 0600);

// Runs sorvane-audit --repair-plan: expects no finding to need a person,
// runs the plan and expects the audit clean. Returns the plan's commands.
std::vector<std::string> repair_and_expect_clean();

// Runs sorvane-audit --repair-plan and expects no command and exactly
// these "needs a person" lines.
void expect_needs_a_person(const std::vector<std::string>& lines);

}  // namespace sorvane::test
