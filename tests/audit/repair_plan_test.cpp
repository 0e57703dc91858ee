// The repair plan: each command once, domains before mail names, and what
// needs a person.
#include "audit/repair_plan.h"

#include <gtest/gtest.h>

#include "audit/findings.h"
#include "audit/report_output.h"

namespace crelm::audit {
namespace {

TEST(RepairPlanTest, CommandsRunOnceInPhaseOrder) {
    Findings findings;
    findings.add(Severity::error, "b-mail", "x@a.test", "d", {{"--add-mailname", "--domain-name=a.test", "--mailname=x"}},
                 RepairPhase::mail_names);
    findings.add(Severity::warning, "a-domain", "a.test", "d", {{"--add-domain", "--domain-name=a.test"}},
                 RepairPhase::domains);
    findings.add(Severity::notice, "c-domain", "a.test", "d", {{"--add-domain", "--domain-name=a.test"}},
                 RepairPhase::domains);
    findings.add(Severity::error, "d-person", "/x", "d");
    const std::vector<Finding> sorted = findings.sorted();
    const RepairPlan plan = plan_repairs(sorted);
    ASSERT_EQ(plan.commands.size(), 2u);
    EXPECT_EQ(plan.commands[0].command_line, "sorvane --add-domain --domain-name=a.test");
    EXPECT_EQ(plan.commands[0].fixes, (std::vector<std::string>{"a-domain a.test", "c-domain a.test"}));
    EXPECT_EQ(plan.commands[1].command_line, "sorvane --add-mailname --domain-name=a.test --mailname=x");
    ASSERT_EQ(plan.for_a_person.size(), 1u);
    EXPECT_EQ(plan.for_a_person[0]->code, "d-person");
}

TEST(RepairPlanTest, RemovalsRunBeforeAdditions) {
    Findings findings;
    findings.add(Severity::error, "a-missing", "office@a.test", "d",
                 {{"--add-alias", "--domain-name=a.test", "--mailname=john", "--alias=office"}},
                 RepairPhase::mail_aliases);
    findings.add(Severity::warning, "b-extra", "office@a.test", "d",
                 {{"--remove-alias", "--domain-name=a.test", "--mailname=info", "--alias=office"}},
                 RepairPhase::mail_aliases);
    const std::vector<Finding> sorted = findings.sorted();
    const RepairPlan plan = plan_repairs(sorted);
    ASSERT_EQ(plan.commands.size(), 2u);
    EXPECT_EQ(plan.commands[0].command_line, "sorvane --remove-alias --domain-name=a.test --mailname=info --alias=office");
    EXPECT_EQ(plan.commands[1].command_line, "sorvane --add-alias --domain-name=a.test --mailname=john --alias=office");
}

TEST(RepairPlanTest, ArgumentsAreQuotedForTheShell) {
    EXPECT_EQ(shell_command_line({"--set-bounce", "--phrase=Gone away; don't write", "--mail-addresses", ""}),
              "sorvane --set-bounce '--phrase=Gone away; don'\\''t write' --mail-addresses ''");
}

TEST(RepairPlanTest, FindingsPrintSortedOnceWithASummary) {
    Findings findings;
    findings.add(Severity::notice, "z", "o", "d");
    findings.add(Severity::error, "y", "o", "d");
    findings.add(Severity::error, "y", "o", "d");
    ReadCounts counts{1, 2, 3};
    std::ostringstream out;
    print_report(out, findings.sorted(), counts, ReportOptions{false, true});
    EXPECT_EQ(out.str(),
              "error y o: d\n"
              "notice z o: d\n"
              "2 findings (1 error, 0 warnings, 1 notice) in 1 domain, 2 mail names and 3 store rows\n"
              "repair plan:\n"
              "needs a person: y o\n"
              "needs a person: z o\n");
}

}  // namespace
}  // namespace crelm::audit
