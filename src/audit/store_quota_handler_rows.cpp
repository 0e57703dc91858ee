#include "audit/repair_commands.h"
#include "audit/store_checks.h"
#include "stores/mail_handlers_store.h"

namespace crelm::audit {

namespace {

// The removal that takes a leftover row of local@domain away: the mail
// name's at the hosted domain (its session lists reach the domain's aliases
// too), else the domain's.
CommandLine leftover_removal(const ServerModel& model, const std::string& domain, const std::string& local) {
    const std::string hosted = domain_of(model, domain);
    if (!hosted.empty())
        return with_session(remove_mailname(model, hosted, local));
    return with_session(remove_domain(model, domain));
}

}  // namespace

void check_quota_rows(const AuditContext& context, const AddressIndex& index) {
    const StoreRead& quota = context.server.stores.quota;
    if (!quota.failure.empty() || !quota.db)
        return;
    for (const QuotaRow& row : context.server.stores.quotas) {
        if (!context.scope.covers(row.domain))
            continue;
        // A home without its record keeps its quota row: the mail name
        // check reports the record.
        const std::string* mail_name = index.mail_name(row.mailbox, row.domain);
        if (mail_name != nullptr && *mail_name == row.mailbox)
            continue;
        context.findings.add(Severity::notice, "quota-row-unknown", row.mailbox + "@" + row.domain,
                             "a quota row, but assign has no mail name " + row.mailbox + " at " + row.domain,
                             {leftover_removal(context.model, row.domain, row.mailbox)}, RepairPhase::mail_names);
    }
}

void check_handler_rows(const AuditContext& context, const AddressIndex& index) {
    const StoreRead& handlers = context.server.stores.handlers;
    if (!handlers.failure.empty() || !handlers.db)
        return;
    std::string local;
    std::string at;
    for (const HandlerRow& row : context.server.stores.handler_rows) {
        if (row.address == kGlobalHandlersAddress || row.address == kAllRecipientsAddress)
            continue;
        if (!split_address(row.address, local, at)) {
            if (context.scope.whole_server())
                context.findings.add(Severity::notice, "handler-address-unknown", row.address,
                                     "the handler " + row.name + " is set for an address without a domain");
            continue;
        }
        const std::string domain = domain_of(context.model, at);
        if (!(context.scope.covers(at) || (!domain.empty() && context.scope.covers(domain))))
            continue;
        if (!domain.empty() && index.mail_name(local, domain) != nullptr)
            continue;
        context.findings.add(Severity::notice, "handler-address-unknown", row.address,
                             "the handler " + row.name + " is set for an address that is no mail name or mail alias",
                             {leftover_removal(context.model, at, local)}, RepairPhase::mail_names);
    }
}

}  // namespace crelm::audit
