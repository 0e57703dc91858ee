// The server of the end-to-end tests, audited: seeded as sorvane leaves it
// (with the compiled assignment table newer than assign, as after the
// commands' rebuild), then broken by a test one thing at a time.
#pragma once

#include <string>
#include <vector>

#include "e2e/server_state.h"
#include "support/sandbox.h"

namespace sorvane::test {

// seed_server_state() plus what sorvane and a real rebuild leave: the
// quota files of mailboxes with a quota, and users/cdb newer than assign.
void seed_audited_server();

// Marks the compiled table as rebuilt after a hand edit of assign, so that
// a test sees only the finding it is about.
void mark_assign_compiled();

// The finding lines of a text report (the summary line and any repair plan
// left out).
std::vector<std::string> finding_lines(const std::string& report);

// The repair plan's command lines of a text report ("sorvane ..." lines).
std::vector<std::string> repair_lines(const std::string& report);

// Runs each of the plan's command lines through sorvane (split as the shell
// would, for the quoting the plan uses), failing the test when one fails.
void run_repair_plan(const std::string& report);

// Runs the audit with args and expects exactly these finding lines, status
// 1 (0 when there are none) and nothing on standard error; returns the
// report.
std::string expect_findings(const std::vector<std::string>& lines, const std::vector<std::string>& args = {});

// The "needs a person: <code> <object>" lines of a repair plan.
std::vector<std::string> person_lines(const std::string& report);

class AuditTest : public SandboxTest {
protected:
    void SetUp() override;
};

}  // namespace sorvane::test
