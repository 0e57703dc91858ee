#include <map>
#include <set>

#include "audit/picture.h"
#include "audit/picture_repairs.h"
#include "session/mail_data_normalize.h"

namespace crelm::audit {

namespace {

std::string address(const std::string& local, const std::string& domain) { return local + "@" + domain; }

// What the stores hold of each mail name, indexed once for the whole run.
struct StoreIndex {
    std::set<MailNameKey> mailboxes;               // (domain, name) with an authentication row
    std::map<MailNameKey, std::string> quotas;     // the quota store's text
    std::map<std::string, std::vector<std::string>> domain_aliases;  // domain -> its aliases
};

StoreIndex index_server(const ServerSnapshot& server, const ServerModel& model) {
    StoreIndex index;
    for (const AuthUserRow& row : server.stores.auth_users)
        index.mailboxes.emplace(row.domain, row.name);
    for (const QuotaRow& row : server.stores.quotas)
        index.quotas.emplace(MailNameKey{row.domain, row.mailbox}, row.quota);
    for (const auto& [alias, domain] : model.domain_aliases)
        index.domain_aliases[domain].push_back(alias);
    return index;
}

// The bytes of a stored quota text, read as sorvane reads it (leading
// digits times the unit after them, "" counting as bytes); -1 when it has
// no digits or is out of range.
std::int64_t stored_bytes(const std::string& text) {
    std::size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9')
        ++digits;
    if (digits == 0 || digits > 18)
        return -1;
    const std::string unit = text.substr(digits);
    const std::int64_t multiplier = unit.empty() ? 1 : mail::quota_unit_multiplier(unit.c_str());
    const std::int64_t value = std::stoll(text.substr(0, digits));
    if (multiplier != 0 && value > INT64_MAX / multiplier)
        return -1;
    return value * multiplier;
}

std::string action_text(const std::vector<std::string>& options) {
    if (options.empty() || options[0] == "--set-reject")
        return "reject";
    const std::string value = options.size() > 1 ? options[1].substr(options[1].find('=') + 1) : "";
    if (options[0] == "--set-catchall")
        return "catch-all to " + value;
    return options.size() > 1 ? "bounce with \"" + value + "\"" : "bounce";
}

std::string quota_text_of(std::int64_t quota) {
    return quota < 0 ? "unlimited" : std::to_string(quota) + " bytes";
}

// A domain as the server has it, or as a domain the server does not host
// would be once added: on, with no aliases and no mail names.
struct ServerDomain {
    bool hosted = false;
    bool enabled = true;
};

class PictureComparison {
public:
    PictureComparison(const AuditContext& context, const Picture& picture)
        : context_(context), picture_(picture), index_(index_server(context.server, context.model)) {}

    void run() {
        std::set<std::string> pictured;
        for (const PictureDomain& domain : picture_.domains) {
            pictured.insert(domain.name);
            if (context_.scope.covers(domain.name))
                compare_domain(domain);
        }
        for (const auto& [name, facts] : context_.model.domains)
            if (context_.scope.covers(name) && pictured.count(name) == 0)
                add(Severity::warning, "expect-domain-extra", name, "the server hosts it, the panel does not",
                    {remove_domain(context_.model, name)}, RepairPhase::domains);
    }

private:
    const ServerModel& model() const { return context_.model; }

    void add(Severity severity, const char* code, std::string object, std::string detail,
             std::vector<CommandLine> repairs, RepairPhase phase) {
        context_.findings.add(severity, code, std::move(object), std::move(detail), std::move(repairs), phase);
    }

    ServerDomain server_domain(const std::string& name) const {
        ServerDomain domain;
        auto facts = model().domains.find(name);
        if (facts == model().domains.end())
            return domain;
        domain.hosted = true;
        domain.enabled = facts->second.enabled();
        return domain;
    }

    // The server's action for unknown names, read only when a comparison or
    // a repair needs it (it takes a read of the domain's ".qmail-default");
    // a domain being added bounces.
    std::vector<std::string> server_action(const std::string& domain, const ServerDomain& server) const {
        if (!server.hosted)
            return {"--set-bounce"};
        return domain_action_options(context_.server, model(), domain);
    }

    // The action a repair sets: the panel's, or the server's when the panel
    // gives none.
    std::vector<std::string> wanted_action(const PictureDomain& domain, const ServerDomain& server) const {
        return domain.action ? picture_action_options(*domain.action) : server_action(domain.name, server);
    }

    void compare_domain(const PictureDomain& domain) {
        const ServerDomain server = server_domain(domain.name);
        if (!server.hosted && !report_missing_domain(domain))
            return;
        compare_state(domain, server);
        // A domain that is off has no domain aliases on the server: turning
        // it off takes them out, turning it on puts the session's back.
        if (server.enabled && domain.enabled.value_or(true))
            compare_domain_aliases(domain, server);
        compare_mails(domain);
    }

    // The session lists of commands that add to a domain: the server's, or
    // the picture's while the server has none for it (sorvane would wait
    // for them on standard input).
    std::vector<std::string> lists_for(const PictureDomain& domain) const {
        std::vector<std::string> lists = session_lists(model(), domain.name);
        return lists.empty() ? picture_session_lists(domain) : lists;
    }

    // False when the server has the name as another domain's alias: a
    // person has to choose, and nothing of the domain is compared further.
    bool report_missing_domain(const PictureDomain& domain) {
        const std::string target = domain_of(model(), domain.name);
        if (!target.empty()) {
            add(Severity::error, "expect-domain-missing", domain.name,
                "the panel hosts it, the server has it as an alias of " + target, {}, RepairPhase::domains);
            return false;
        }
        add(Severity::error, "expect-domain-missing", domain.name, "the panel hosts it, the server does not",
            {add_domain(domain.name)}, RepairPhase::domains);
        return true;
    }

    // Mail service on or off, and the action for unknown names while on.
    // Repairs run after the mail names are in step: the session lists they
    // carry are the picture's.
    void compare_state(const PictureDomain& domain, const ServerDomain& server) {
        const bool wanted = domain.enabled.value_or(server.enabled);
        if (wanted && !server.enabled) {
            add(Severity::error, "expect-domain-off", domain.name,
                "the panel has mail service on, the server has it off",
                {turn_on_to_picture(domain, wanted_action(domain, server))}, RepairPhase::quotas);
        } else if (!wanted && server.enabled) {
            add(Severity::warning, "expect-domain-on", domain.name,
                server.hosted ? "the panel has mail service off, the server has it on"
                              : "the panel has mail service off, a domain added has it on",
                {turn_off_to_picture(domain)}, RepairPhase::quotas);
        } else if (wanted && domain.action) {
            const std::vector<std::string> options = picture_action_options(*domain.action);
            const std::vector<std::string> held = server_action(domain.name, server);
            if (options != held)
                add(Severity::warning, "expect-action-differs", domain.name,
                    "the panel's action for unknown names is " + action_text(options) + ", the server's is " +
                        action_text(held),
                    {turn_on_to_picture(domain, options)}, RepairPhase::quotas);
        }
    }

    void compare_domain_aliases(const PictureDomain& domain, const ServerDomain& server_domain) {
        std::set<std::string> pictured(domain.aliases.begin(), domain.aliases.end());
        for (const std::string& alias : pictured) {
            auto target = model().domain_aliases.find(alias);
            if (target != model().domain_aliases.end() && target->second == domain.name)
                continue;
            if (target != model().domain_aliases.end())
                add(Severity::error, "expect-domain-alias-missing", alias,
                    "the panel has it as an alias of " + domain.name + ", the server as an alias of " + target->second,
                    {}, RepairPhase::domain_aliases);
            else
                add(Severity::error, "expect-domain-alias-missing", alias,
                    "the panel has it as an alias of " + domain.name + ", the server does not",
                    {add_domain_alias(domain.name, alias,
                                      wanted_action(domain, server_domain),
                                      lists_for(domain))},
                    RepairPhase::domain_aliases);
        }
        auto server = index_.domain_aliases.find(domain.name);
        if (server == index_.domain_aliases.end())
            return;
        for (const std::string& alias : server->second)
            if (pictured.count(alias) == 0)
                add(Severity::warning, "expect-domain-alias-extra", alias,
                    "the server has it as an alias of " + domain.name + ", the panel does not",
                    {remove_domain_alias(model(), domain.name, alias)}, RepairPhase::domain_aliases);
    }

    void compare_mails(const PictureDomain& domain) {
        std::map<std::string, const PictureMail*> pictured;
        for (const PictureMail& mail : domain.mails)
            pictured.emplace(mail.name, &mail);
        for (const auto& [name, mail] : pictured) {
            auto server = model().mail_names.find({domain.name, name});
            if (server == model().mail_names.end())
                report_missing_mail(domain, *mail);
            else
                compare_mail(domain, *mail, server->second);
        }
        for (auto server = model().mail_names.lower_bound({domain.name, std::string()});
             server != model().mail_names.end() && server->first.first == domain.name; ++server)
            if (pictured.count(server->first.second) == 0)
                add(Severity::warning, "expect-mail-name-extra", address(server->first.second, domain.name),
                    "the server has this mail name, the panel does not",
                    {remove_mailname(model(), domain.name, server->first.second)}, RepairPhase::mail_names);
    }

    void report_missing_mail(const PictureDomain& domain, const PictureMail& mail) {
        add(Severity::error, "expect-mail-name-missing", address(mail.name, domain.name),
            "the panel has this mail name, the server does not", {add_mailname_with_quota(domain.name, mail)},
            RepairPhase::mail_names);
        compare_mail_aliases(domain, mail, {});
        compare_mailbox(domain.name, mail);
    }

    void compare_mail(const PictureDomain& domain, const PictureMail& mail, const MailNameFacts& server) {
        compare_mail_aliases(domain, mail, server.aliases);
        compare_mailbox(domain.name, mail);
        compare_quota(domain.name, mail);
    }

    void compare_mail_aliases(const PictureDomain& picture, const PictureMail& mail,
                              const std::vector<std::string>& server) {
        const std::string& domain = picture.name;
        const std::set<std::string> pictured(mail.aliases.begin(), mail.aliases.end());
        const std::set<std::string> held(server.begin(), server.end());
        const std::string owner = address(mail.name, domain);
        for (const std::string& alias : pictured)
            if (held.count(alias) == 0)
                add(Severity::error, "expect-mail-alias-missing", address(alias, domain),
                    "the panel has it as an alias of " + owner + ", the server does not",
                    {add_alias(domain, mail.name, alias, lists_for(picture))}, RepairPhase::mail_aliases);
        for (const std::string& alias : held)
            if (pictured.count(alias) == 0)
                add(Severity::warning, "expect-mail-alias-extra", address(alias, domain),
                    "the server has it as an alias of " + owner + ", the panel does not",
                    {remove_alias(model(), domain, mail.name, alias)}, RepairPhase::mail_aliases);
    }

    // A mailbox is the mail name's row in the authentication store; whether
    // its delivery line agrees is the mail names check's concern. A mailbox
    // needs a password that only the panel has.
    void compare_mailbox(const std::string& domain, const PictureMail& mail) {
        if (!mail.mailbox)
            return;
        const bool held = index_.mailboxes.count({domain, mail.name}) != 0;
        if (*mail.mailbox && !held)
            add(Severity::error, "expect-mailbox-missing", address(mail.name, domain),
                "the panel has a mailbox for it, the authentication store has no row", {}, RepairPhase::mailboxes);
        else if (!*mail.mailbox && held)
            add(Severity::warning, "expect-mailbox-extra", address(mail.name, domain),
                "the authentication store has a mailbox for it, the panel does not",
                {remove_mailbox(model(), domain, mail.name)}, RepairPhase::mailboxes);
    }

    // sorvane stores a quota below 0 (unlimited) as 0 bytes.
    void compare_quota(const std::string& domain, const PictureMail& mail) {
        const std::int64_t wanted = mail.quota < 0 ? 0 : mail.quota;
        auto stored = index_.quotas.find({domain, mail.name});
        std::string held = "no row";
        if (stored != index_.quotas.end()) {
            if (stored_bytes(stored->second) == wanted)
                return;
            held = stored->second;
        }
        add(Severity::warning, "expect-quota-differs", address(mail.name, domain),
            "the panel's quota is " + quota_text_of(mail.quota) + ", the quota store has " + held,
            {set_mailbox_disk_quota(domain, mail.name, mail.quota)}, RepairPhase::quotas);
    }

    const AuditContext& context_;
    const Picture& picture_;
    const StoreIndex index_;
};

}  // namespace

void compare_picture(const AuditContext& context, const Picture& picture) { PictureComparison(context, picture).run(); }

}  // namespace crelm::audit
