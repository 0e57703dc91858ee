// The checks of one mail name whose "=" record and home both exist: its
// ".qmail", the Maildir++ tree, "maildirsize" and anything in the home that
// root should never act on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "audit/audit_context.h"
#include "audit/text_file.h"

namespace crelm::audit {

// The store rows the mail name checks look up, keyed by "<name>@<domain>".
struct MailStoreIndex {
    std::unordered_set<std::string> auth;  // addresses with an authentication row
    std::unordered_map<std::string, const QuotaRow*> quotas;
};

MailStoreIndex index_mail_stores(const StoreRows& stores);

// What the checks know of one mail name before they look into its home.
struct MailNameSubject {
    // Whether the authentication and quota stores could be read: a store
    // that could not is reported once by the store check, and nothing is
    // compared with its rows.
    bool auth_rows_read = true;
    bool quota_rows_read = true;
    std::string domain;
    std::string name;
    std::string address;  // "<name>@<domain>"
    std::string home;     // its path
    bool auth_row = false;
    std::optional<std::int64_t> stored_quota;  // bytes of its quota row, when it has one that reads
};

MailNameSubject mail_name_subject(const ServerSnapshot& server, const MailStoreIndex& index,
                                  const std::string& domain, const std::string& name);

// --add-mailname makes the home, tree and ".qmail" again, but writes
// ".qmail" as "| true" (no mailbox): a repair only when that is what it
// holds, or when it is missing and the authentication store has no row
// either. Otherwise a person has to look (empty).
std::vector<std::vector<std::string>> add_mailname_repair(const MailNameSubject& subject, const TextFile& dot_qmail);

// Reads ".qmail" of the home open on home_fd.
TextFile read_dot_qmail(int home_fd);

// Every check of the home open on home_fd.
void check_mail_home(const AuditContext& context, const MailNameSubject& subject, int home_fd);

}  // namespace crelm::audit
