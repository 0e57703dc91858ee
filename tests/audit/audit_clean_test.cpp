// The server as sorvane leaves it audits clean, whole and per domain.
#include <gtest/gtest.h>

#include "audit/audit_fixture.h"

namespace sorvane::test {
namespace {

using CleanServerTest = AuditTest;

TEST_F(CleanServerTest, TheSeededServerHasNoFinding) {
    const ProcessResult result = run_sorvane_audit({});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(finding_lines(result.out), std::vector<std::string>{}) << result.out;
    EXPECT_EQ(result.status, 0) << result.out;
}

}  // namespace
}  // namespace sorvane::test
