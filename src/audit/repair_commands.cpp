#include "audit/repair_commands.h"

#include <algorithm>

#include "audit/text_file.h"

namespace crelm::audit {

namespace {

// The bounce line's phrase is written with every special character escaped
// by a backslash; taking the backslashes off gives the phrase back.
std::string unescaped(std::string_view text) {
    std::string phrase;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size())
            ++i;
        phrase += text[i];
    }
    return phrase;
}

constexpr std::string_view kBouncePrefix = "|bouncesaying ";
constexpr std::string_view kDefaultPhrase = "This address no longer accepts mail.";
constexpr off_t kQmailDefaultLimit = 64 * 1024;

std::vector<std::string> aliases_of(const ServerModel& model, const std::string& domain) {
    std::vector<std::string> aliases;
    for (const auto& [alias, target] : model.domain_aliases)
        if (target == domain)
            aliases.push_back(alias);
    return aliases;
}

CommandLine with_lists(CommandLine line, const ServerModel& model, const std::string& domain) {
    for (std::string& list : session_lists(model, domain))
        line.push_back(std::move(list));
    return line;
}

}  // namespace

std::vector<std::string> session_lists(const ServerModel& model, const std::string& domain) {
    std::vector<std::string> lists;
    std::string aliases;
    for (const std::string& alias : aliases_of(model, domain))
        aliases += (aliases.empty() ? "" : ",") + alias;
    if (!aliases.empty())
        lists.push_back("--domain-aliases=" + aliases);
    std::string addresses;
    for (auto found = model.mail_names.lower_bound({domain, std::string()});
         found != model.mail_names.end() && found->first.first == domain; ++found) {
        addresses += addresses.empty() ? "" : ";";
        addresses += found->second.name;
        for (const std::string& alias : found->second.aliases)
            addresses += "," + alias;
    }
    // A command that takes the lists reads standard input when it is given
    // neither; an empty list says there is nothing to read.
    // (Given apart from its name, as "--mail-addresses=" with nothing
    // after the sign is refused.)
    if (!addresses.empty())
        lists.push_back("--mail-addresses=" + addresses);
    else if (lists.empty())
        lists.insert(lists.end(), {"--mail-addresses", ""});
    return lists;
}

std::vector<std::string> domain_action_options(const ServerSnapshot& server, const ServerModel& model,
                                               const std::string& domain) {
    auto facts = model.domains.find(domain);
    if (facts != model.domains.end() && facts->second.in_rejectnonexist)
        return {"--set-reject"};
    const TextFile file = read_text_file(server.mailnames_dir + "/" + domain + "/.qmail-default", kQmailDefaultLimit);
    const std::vector<std::string_view> lines = text_lines(file.text);
    if (file.state == FileState::present && !lines.empty()) {
        const std::string_view line = lines.front();
        if (!line.empty() && line[0] == '&')
            return {"--set-catchall", "--email=" + std::string(line.substr(1))};
        if (line.substr(0, kBouncePrefix.size()) == kBouncePrefix) {
            const std::string phrase = unescaped(line.substr(kBouncePrefix.size()));
            if (phrase != kDefaultPhrase)
                return {"--set-bounce", "--phrase=" + phrase};
        }
    }
    return {"--set-bounce"};
}

CommandLine turn_on_domain(const ServerSnapshot& server, const ServerModel& model, const std::string& domain) {
    CommandLine line{"--turn-on-domain", "--domain-name=" + domain};
    for (std::string& option : domain_action_options(server, model, domain))
        line.push_back(std::move(option));
    return with_lists(std::move(line), model, domain);
}

CommandLine turn_off_domain(const ServerModel& model, const std::string& domain) {
    return with_lists({"--turn-off-domain", "--domain-name=" + domain}, model, domain);
}

CommandLine add_domain(const std::string& domain) { return {"--add-domain", "--domain-name=" + domain}; }

CommandLine remove_domain(const ServerModel& model, const std::string& domain) {
    return with_lists({"--remove-domain", "--domain-name=" + domain}, model, domain);
}

CommandLine add_mailname(const std::string& domain, const std::string& mail_name) {
    return {"--add-mailname", "--domain-name=" + domain, "--mailname=" + mail_name};
}

CommandLine remove_mailname(const ServerModel& model, const std::string& domain, const std::string& mail_name) {
    return with_lists({"--remove-mailname", "--domain-name=" + domain, "--mailname=" + mail_name}, model, domain);
}

CommandLine remove_alias(const ServerModel& model, const std::string& domain, const std::string& mail_name,
                         const std::string& alias) {
    return with_lists({"--remove-alias", "--domain-name=" + domain, "--mailname=" + mail_name, "--alias=" + alias},
                      model, domain);
}

CommandLine add_alias(const ServerModel& model, const std::string& domain, const std::string& mail_name,
                      const std::string& alias) {
    return with_lists({"--add-alias", "--domain-name=" + domain, "--mailname=" + mail_name, "--alias=" + alias},
                      model, domain);
}

CommandLine add_domain_alias(const ServerSnapshot& server, const ServerModel& model, const std::string& domain,
                             const std::string& alias) {
    CommandLine line{"--add-domain-alias", "--domain-name=" + domain, "--domain-alias-name=" + alias};
    for (std::string& option : domain_action_options(server, model, domain))
        line.push_back(std::move(option));
    return with_lists(std::move(line), model, domain);
}

CommandLine remove_domain_alias(const ServerModel& model, const std::string& domain, const std::string& alias) {
    return with_lists({"--del-domain-alias", "--domain-name=" + domain, "--domain-alias-name=" + alias}, model,
                      domain);
}

CommandLine add_mailname_keeping_quota(const std::string& domain, const std::string& mail_name,
                                       std::int64_t stored_quota) {
    CommandLine line = add_mailname(domain, mail_name);
    if (stored_quota > 0)
        line.push_back("--disk-quota=" + std::to_string(stored_quota));
    return line;
}

CommandLine set_mailbox_disk_quota(const std::string& domain, const std::string& mail_name, std::int64_t quota) {
    return {"--set-mailbox-disk-quota", "--domain-name=" + domain, "--mailname=" + mail_name,
            "--disk-quota=" + std::to_string(quota < 0 ? -1 : quota)};
}

}  // namespace crelm::audit

namespace crelm::audit {

CommandLine remove_mailbox(const ServerModel& model, const std::string& domain, const std::string& mail_name) {
    CommandLine line{"--remove-mailbox", "--domain-name=" + domain, "--mailname=" + mail_name};
    for (std::string& list : session_lists(model, domain))
        line.push_back(std::move(list));
    return line;
}

}  // namespace crelm::audit

namespace crelm::audit {

CommandLine with_session(CommandLine line) {
    for (const std::string& argument : line)
        if (argument.rfind("--domain-aliases=", 0) == 0 || argument.rfind("--mail-addresses", 0) == 0)
            return line;
    line.push_back("--mail-addresses=;");
    return line;
}

}  // namespace crelm::audit
