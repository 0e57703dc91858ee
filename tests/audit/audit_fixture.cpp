#include "audit/audit_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <sstream>

namespace sorvane::test {

void mark_assign_compiled() {
    struct stat info {};
    ASSERT_EQ(stat("/var/qmail/users/assign", &info), 0);
    write_file("/var/qmail/users/cdb", "compiled\n", 0644);
    // One second later than assign, whatever the clock's resolution.
    const struct timespec times[2] = {{info.st_mtim.tv_sec + 1, 0}, {info.st_mtim.tv_sec + 1, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/var/qmail/users/cdb", times, 0), 0);
}

void seed_audited_server() {
    seed_server_state();
    // Mailboxes with a quota above 0 get their quota file, as sorvane
    // writes it when it sets the quota.
    std::vector<std::pair<std::string, SeededMail>> mails{{kNeighbour, neighbour_mail()}};
    for (const SeededMail& mail : seeded_mails())
        mails.emplace_back(kDomain, mail);
    for (const auto& [domain, mail] : mails) {
        if (mail.quota > 0) {
            ASSERT_EQ(run_sorvane({"--set-mailbox-disk-quota", "--domain-name=" + domain, "--mailname=" + mail.name,
                                   "--disk-quota=" + std::to_string(mail.quota)})
                          .status,
                      0);
        }
    }
    mark_assign_compiled();
}

std::vector<std::string> finding_lines(const std::string& report) {
    std::vector<std::string> lines;
    std::istringstream in(report);
    std::string line;
    while (std::getline(in, line)) {
        if (line == "repair plan:")
            break;
        lines.push_back(line);
    }
    if (!lines.empty())
        lines.pop_back();  // the summary
    return lines;
}

std::vector<std::string> repair_lines(const std::string& report) {
    std::vector<std::string> lines;
    std::istringstream in(report);
    std::string line;
    bool in_plan = false;
    while (std::getline(in, line)) {
        if (line == "repair plan:")
            in_plan = true;
        else if (in_plan && line.rfind("sorvane ", 0) == 0)
            lines.push_back(line);
    }
    return lines;
}

void run_repair_plan(const std::string& report) {
    for (const std::string& line : repair_lines(report)) {
        // The shell takes the line apart, as an operator's would.
        const ProcessResult result =
            run_process({"/bin/sh", "-c", "exec " + sorvane_path() + line.substr(std::string("sorvane").size())});
        EXPECT_EQ(result.status, 0) << line << "\n" << result.err;
    }
}

std::string expect_findings(const std::vector<std::string>& lines, const std::vector<std::string>& args) {
    const ProcessResult result = run_sorvane_audit(args);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(finding_lines(result.out), lines) << result.out;
    EXPECT_EQ(result.status, lines.empty() ? 0 : 1) << result.out;
    return result.out;
}

std::vector<std::string> person_lines(const std::string& report) {
    std::vector<std::string> lines;
    std::istringstream in(report);
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("needs a person: ", 0) == 0)
            lines.push_back(line);
    return lines;
}

void AuditTest::SetUp() {
    SandboxTest::SetUp();
    seed_audited_server();
}

}  // namespace sorvane::test
