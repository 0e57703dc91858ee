#include <unordered_set>

#include "audit/repair_commands.h"
#include "audit/store_checks.h"

namespace crelm::audit {

namespace {

void check_domain_rows(const AuditContext& context) {
    for (const AuthDomainRow& row : context.server.stores.auth_domains) {
        if (!context.scope.covers(row.name) || !known_only_to_store(context.model, row.name))
            continue;
        context.findings.add(Severity::notice, "auth-domain-unknown", row.name,
                             "the authentication store has a domain row, but the domain is neither hosted nor a "
                             "domain alias",
                             {with_session(remove_domain(context.model, row.name))}, RepairPhase::domains);
    }
}

// The mail names whose mailbox the store holds: a row at the mail name's
// own address, as every mailbox's addition writes first.
std::unordered_set<std::string> addresses_with_rows(const StoreRows& rows) {
    std::unordered_set<std::string> addresses;
    addresses.reserve(rows.auth_users.size());
    for (const AuthUserRow& row : rows.auth_users)
        if (!row.domain.empty())
            addresses.insert(row.name + "@" + row.domain);
    return addresses;
}

void check_user_row(const AuditContext& context, const AddressIndex& index,
                    const std::unordered_set<std::string>& rows, const AuthUserRow& row) {
    if (row.domain.empty()) {
        if (context.scope.whole_server())
            context.findings.add(Severity::warning, "auth-user-orphan", context.server.stores.auth.path,
                                 "the user row \"" + row.name + "\" names the domain id " +
                                     std::to_string(row.domain_id) + ", which has no domain row");
        return;
    }
    const std::string domain = domain_of(context.model, row.domain);
    // Rows of a domain known only to the store are its domain row's finding.
    if (domain.empty() || known_only_to_store(context.model, row.domain) ||
        !(context.scope.covers(domain) || context.scope.covers(row.domain)))
        return;
    const std::string address = row.name + "@" + row.domain;
    const std::string* mail_name = index.mail_name(row.name, domain);
    if (mail_name == nullptr) {
        context.findings.add(Severity::warning, "auth-row-unknown-address", address,
                             "an authentication row, but assign has no mail name or mail alias " + row.name + " at " +
                                 domain,
                             {with_session(remove_mailname(context.model, domain, row.name))},
                             RepairPhase::mail_names);
        return;
    }
    if (rows.count(*mail_name + "@" + domain) == 0)
        context.findings.add(Severity::warning, "auth-row-without-mailbox", address,
                             "an authentication row, but the mail name " + *mail_name + "@" + domain +
                                 " has no mailbox row",
                             {with_session(remove_mailbox(context.model, domain, *mail_name))}, RepairPhase::mailboxes);
}

// Every address of a mail name with a mailbox: each of its local parts at
// its domain and at each of the domain's aliases.
void check_mailbox_rows(const AuditContext& context, const AddressIndex& index,
                        const std::unordered_set<std::string>& rows) {
    static const std::vector<std::string> kNone;
    for (const auto& [key, facts] : context.model.mail_names) {
        if (!context.scope.covers(facts.domain) || rows.count(facts.name + "@" + facts.domain) == 0)
            continue;
        const auto found = index.aliases_of.find(facts.domain);
        const std::vector<std::string>& aliases = found == index.aliases_of.end() ? kNone : found->second;
        std::vector<std::string> locals{facts.name};
        locals.insert(locals.end(), facts.aliases.begin(), facts.aliases.end());
        for (const std::string& local : locals) {
            for (std::size_t i = 0; i <= aliases.size(); ++i) {
                const std::string& at = i == 0 ? facts.domain : aliases[i - 1];
                const std::string address = local + "@" + at;
                if (rows.count(address) == 0)
                    context.findings.add(Severity::error, "auth-row-missing", address,
                                         "the mailbox " + facts.name + "@" + facts.domain +
                                             " has no authentication row for this address: logging in with it fails");
            }
        }
    }
}

}  // namespace

void check_auth_rows(const AuditContext& context, const AddressIndex& index) {
    const StoreRead& auth = context.server.stores.auth;
    if (!auth.failure.empty() || !auth.db)
        return;
    check_domain_rows(context);
    const std::unordered_set<std::string> rows = addresses_with_rows(context.server.stores);
    for (const AuthUserRow& row : context.server.stores.auth_users)
        check_user_row(context, index, rows, row);
    check_mailbox_rows(context, index, rows);
}

}  // namespace crelm::audit
