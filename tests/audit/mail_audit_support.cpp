#include "audit/mail_audit_support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <sstream>

namespace sorvane::test {

std::string home_of(const std::string& name, const std::string& domain) {
    return kMailnamesDir + "/" + domain + "/" + name;
}

void add_mailname(const std::string& name, const std::vector<std::string>& extra) {
    std::vector<std::string> args{"--add-mailname", "--domain-name=" + kDomain, "--mailname=" + name};
    args.insert(args.end(), extra.begin(), extra.end());
    const ProcessResult result = run_sorvane(args);
    ASSERT_EQ(result.status, 0) << result.err;
}

void remove_assign_line(const std::string& line) {
    const std::string assign = read_file("/var/qmail/users/assign");
    const std::size_t at = assign.find(line);
    ASSERT_NE(at, std::string::npos) << line;
    write_file("/var/qmail/users/assign", assign.substr(0, at) + assign.substr(at + line.size()), 0644);
    mark_assign_compiled();
}

void write_popuser_file(const std::string& path, const std::string& content, mode_t mode) {
    write_file(path, content, mode);
    ASSERT_EQ(chown(path.c_str(), popuser_uid(), popuser_gid()), 0) << path;
    ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
}

std::vector<std::string> repair_and_expect_clean() {
    const ProcessResult plan = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(person_lines(plan.out), std::vector<std::string>{}) << plan.out;
    run_repair_plan(plan.out);
    expect_findings({});
    return repair_lines(plan.out);
}

void expect_needs_a_person(const std::vector<std::string>& lines) {
    const ProcessResult plan = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(repair_lines(plan.out), std::vector<std::string>{}) << plan.out;
    EXPECT_EQ(person_lines(plan.out), lines) << plan.out;
}

}  // namespace sorvane::test
