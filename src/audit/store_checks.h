// The parts of the store check, one concern each: the health of a store
// file, owners and modes of the store files, and the rows of each store
// against the mail names and domains the server holds.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "audit/audit_context.h"

namespace crelm::audit {

// The addresses that the server's records make: every mail name and mail
// alias at its domain and at each of the domain's aliases.
struct AddressIndex {
    // "<local part>@<domain>" (a hosted domain, never an alias) -> the mail
    // name whose home it reaches.
    std::unordered_map<std::string, std::string> mail_name_of;
    // hosted domain -> its domain aliases, sorted
    std::unordered_map<std::string, std::vector<std::string>> aliases_of;

    // The mail names directory: a home there without its record still
    // owns its rows (the mail name check reports the missing record).
    std::string mailnames_dir;
    mutable std::unordered_map<std::string, std::string> homes_found;

    // The mail name that local@domain reaches ("" when none), domain being
    // the hosted domain.
    const std::string* mail_name(const std::string& local, const std::string& domain) const;
};

AddressIndex build_address_index(const ServerModel& model, const std::string& mailnames_dir);

// A name that only a store row makes a domain: no "+" record, no
// directory, no control line, and no domain alias either (true as well for
// a name the server does not know at all).
bool known_only_to_store(const ServerModel& model, const std::string& name);

// Splits an address at its last "@"; false when there is none.
bool split_address(const std::string& address, std::string& local, std::string& domain);

// Missing, unreadable, left with a hot journal, failing SQLite's integrity
// check or with another schema than batch creates.
void check_store_health(const AuditContext& context, const StoreRead& store, const char* batch);
// Owners and modes of the store files, their directories and the key file.
void check_store_files(const AuditContext& context);
// Authentication rows against the mail names' records and mailboxes.
void check_auth_rows(const AuditContext& context, const AddressIndex& index);
// Quota rows of mail names without a record, handlers of unknown addresses.
void check_quota_rows(const AuditContext& context, const AddressIndex& index);
void check_handler_rows(const AuditContext& context, const AddressIndex& index);

}  // namespace crelm::audit
