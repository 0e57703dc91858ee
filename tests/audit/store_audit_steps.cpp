#include "audit/store_audit_steps.h"

#include <gtest/gtest.h>

#include <sstream>

#include "audit/audit_fixture.h"

namespace sorvane::test {


std::string run_sqlite(const std::string& db, const std::string& script) {
    RunOptions options;
    options.stdin_mode = RunOptions::Stdin::Pipe;
    options.input = script;
    const ProcessResult result = run_process({"/usr/bin/sqlite3", "-batch", "-bail", db}, options);
    EXPECT_EQ(result.status, 0) << script << "\n" << result.err;
    EXPECT_EQ(result.err, "") << script;
    return result.out;
}

void expect_repaired(const std::vector<std::string>& for_a_person) {
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(planned.status, 1) << planned.out;
    EXPECT_EQ(person_lines(planned.out), for_a_person) << planned.out;
    EXPECT_FALSE(repair_lines(planned.out).empty()) << planned.out;
    run_repair_plan(planned.out);
    const ProcessResult after = run_sorvane_audit({});
    EXPECT_EQ(finding_lines(after.out), std::vector<std::string>{}) << after.out;
    EXPECT_EQ(after.status, 0) << after.out;
}

void expect_only_for_a_person(const std::vector<std::string>& for_a_person) {
    const ProcessResult planned = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(planned.status, 1) << planned.out;
    EXPECT_EQ(repair_lines(planned.out), std::vector<std::string>{}) << planned.out;
    EXPECT_EQ(person_lines(planned.out), for_a_person) << planned.out;
}

std::string root_nofiles() { return "0:" + std::to_string(nofiles_gid()); }
std::string root_popuser() { return "0:" + std::to_string(popuser_gid()); }

}  // namespace sorvane::test
