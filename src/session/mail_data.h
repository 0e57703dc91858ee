// The picture of one mail domain that a command works with: its aliases,
// mail names with their aliases and quotas, mailing lists, certificates.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace crelm::mail {

// Texts point into storage the data owns or borrows for its whole life (the
// decoded standard-input buffer, or copies of command-line texts), so that
// names can be lower-cased in place and nothing is copied when a document
// is read. A member that the document did not give is nullptr.
struct SessionMail {
    char* name = nullptr;
    std::int64_t mbox_quota = -1;      // bytes once the unit has been applied; -1 unlimited
    const char* mbox_quota_unit = "B";
    std::vector<char*> aliases;
};

struct SessionCertificate {
    char* name = nullptr;
    char* certfile = nullptr;
};

struct SessionMailData {
    char* domain_name = nullptr;
    std::vector<char*> domain_aliases;
    std::vector<char*> maillists;
    std::vector<SessionMail> mails;
    std::vector<SessionCertificate> certificates;

    // Copies text into storage owned by this object and returns the copy.
    char* keep(std::string_view text);

private:
    std::vector<std::unique_ptr<char[]>> kept_texts_;
};

}  // namespace crelm::mail
