// The panel's picture of the seeded server, as data a test changes before
// handing it to sorvane-audit --expect.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "audit/audit_fixture.h"

namespace sorvane::test {

struct MailPicture {
    std::string name;
    std::int64_t quota = -1;  // left out of the document when -1
    std::vector<std::string> aliases;
    std::string extra;        // further members as JSON text, e.g. "\"mailbox\": true"
};

struct DomainPicture {
    std::string name;
    std::vector<std::string> aliases;
    std::vector<MailPicture> mails;
    std::string extra;
};

// example.test and neighbour.test as seeded, without the audit's members.
std::vector<DomainPicture> seeded_picture();
MailPicture& mail_of(std::vector<DomainPicture>& picture, const std::string& domain, const std::string& name);
DomainPicture& domain_of(std::vector<DomainPicture>& picture, const std::string& domain);

std::string picture_json(const std::vector<DomainPicture>& picture);

// sorvane-audit with the picture on standard input (--expect=-).
ProcessResult audit_against(const std::string& picture, const std::vector<std::string>& args = {});

// Runs the repair plan that the audit against picture gives, then expects
// the audit against the same picture clean.
void expect_repaired_to(const std::string& picture);

}  // namespace sorvane::test
