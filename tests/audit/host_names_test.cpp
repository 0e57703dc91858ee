// Hosted domains and domain aliases that are the host's own names, planted
// by hand as a customer could once make them (sorvane refuses them now),
// and the host's names that locals lost.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "audit/mail_audit_support.h"

namespace sorvane::test {
namespace {

const std::string kLocalsPath = "/var/qmail/control/locals";

// The finding lines about the host's names.
std::vector<std::string> host_name_lines(const std::string& report) {
    std::vector<std::string> lines = finding_lines(report);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return line.find("-host-name ") == std::string::npos; }),
                lines.end());
    return lines;
}

std::vector<std::string> host_name_person_lines(const std::string& report) {
    std::vector<std::string> lines = person_lines(report);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const std::string& line) { return line.find("-host-name ") == std::string::npos; }),
                lines.end());
    return lines;
}

// A domain's directory, as --add-domain makes it: enough for the audit to
// take the domain as hosted.
void plant_hosted_domain(const std::string& domain) {
    ASSERT_EQ(::mkdir((kMailnamesDir + "/" + domain).c_str(), 0755), 0) << domain;
}

void append_line(const std::string& path, const std::string& line) {
    write_file(path, read_file(path) + line + "\n", 0644);
}

std::string hosted_line(const std::string& domain, const std::string& reason) {
    return "error domain-is-host-name " + domain + ": a hosted domain that is " + reason +
           ": its mail (postmaster, root) is the host's, not a customer's";
}

using HostNamesTest = AuditTest;

TEST_F(HostNamesTest, TheSeededServerListsLocalhostAndIsClean) { expect_findings({}); }

TEST_F(HostNamesTest, HostedLocalhostSingleLabelsAndAddressLiteralsAreFound) {
    write_file("/var/qmail/control/me", "mail.host.test\n", 0644);
    append_line(kLocalsPath, "mail.host.test");
    for (const char* domain :
         {"localhost", "localhost.localdomain", "mail.host.test", "test", "1.2.3.4", "[1.2.3.4]", "mail.localhost"})
        plant_hosted_domain(domain);
    const ProcessResult audit = run_sorvane_audit({"--repair-plan"});
    EXPECT_EQ(audit.status, 1);
    EXPECT_EQ(audit.err, "");
    EXPECT_EQ(host_name_lines(audit.out),
              (std::vector<std::string>{hosted_line("1.2.3.4", "an address literal"),
                                        hosted_line("[1.2.3.4]", "an address literal"),
                                        hosted_line("localhost", "localhost"),
                                        hosted_line("localhost.localdomain", "localhost with a suffix"),
                                        hosted_line("mail.host.test", "the host's name in control/me"),
                                        hosted_line("mail.localhost", "a name under localhost"),
                                        hosted_line("test", "a name of a single label")}))
        << audit.out;
    EXPECT_EQ(host_name_person_lines(audit.out),
              (std::vector<std::string>{"needs a person: domain-is-host-name 1.2.3.4",
                                        "needs a person: domain-is-host-name [1.2.3.4]",
                                        "needs a person: domain-is-host-name localhost",
                                        "needs a person: domain-is-host-name localhost.localdomain",
                                        "needs a person: domain-is-host-name mail.host.test",
                                        "needs a person: domain-is-host-name mail.localhost",
                                        "needs a person: domain-is-host-name test"}))
        << audit.out;
}

TEST_F(HostNamesTest, DomainAliasesThatAreHostNamesAreFound) {
    write_file("/var/qmail/control/me", "mail.host.test\n", 0644);
    append_line(kLocalsPath, "mail.host.test");
    for (const char* alias : {"localhost", "mail.host.test", "single", "10.0.0.1"})
        append_line("/var/qmail/control/virtualdomains", std::string(alias) + ":" + kDomain);
    const ProcessResult audit = run_sorvane_audit({});
    EXPECT_EQ(audit.status, 1);
    const auto line = [](const std::string& alias, const std::string& reason) {
        return "error domain-alias-is-host-name " + alias + ": a domain alias of " + kDomain + " that is " + reason +
               ": its mail (postmaster, root) is the host's, not a customer's";
    };
    EXPECT_EQ(host_name_lines(audit.out),
              (std::vector<std::string>{line("10.0.0.1", "an address literal"), line("localhost", "localhost"),
                                        line("mail.host.test", "the host's name in control/me"),
                                        line("single", "a name of a single label")}))
        << audit.out;
}

TEST_F(HostNamesTest, AHostNameThatLocalsLostIsFound) {
    // Hosting localhost and the host's name took both out of locals;
    // removing the domains again left them out.
    write_file("/var/qmail/control/me", "mail.host.test\n", 0644);
    write_file(kLocalsPath, "", 0644);
    expect_findings({"warning locals-missing-host-name /var/qmail/control/locals: locals does not list localhost, "
                     "localhost: its mail (postmaster, root) is not delivered to the host",
                     "warning locals-missing-host-name /var/qmail/control/locals: locals does not list "
                     "mail.host.test, the host's name in control/me: its mail (postmaster, root) is not delivered "
                     "to the host"});
    expect_needs_a_person({"needs a person: locals-missing-host-name /var/qmail/control/locals",
                           "needs a person: locals-missing-host-name /var/qmail/control/locals"});
    write_file("/var/qmail/control/me", "Mail.Host.Test\n", 0644);
    write_file(kLocalsPath, "localhost\nmail.host.test\n", 0644);
    expect_findings({});
}

}  // namespace
}  // namespace sorvane::test
