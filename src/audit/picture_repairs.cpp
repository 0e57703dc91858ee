#include "audit/picture_repairs.h"

#include "qmail/bounce_line.h"

namespace crelm::audit {

namespace {

CommandLine with(CommandLine line, std::vector<std::string> options) {
    for (std::string& option : options)
        line.push_back(std::move(option));
    return line;
}

}  // namespace

std::vector<std::string> picture_action_options(const PictureAction& action) {
    switch (action.kind) {
    case PictureAction::Kind::reject:
        return {"--set-reject"};
    case PictureAction::Kind::catchall:
        return {"--set-catchall", "--email=" + action.text};
    case PictureAction::Kind::bounce:
        break;
    }
    if (action.text.empty() || action.text == qmail::kDefaultBounceMessage)
        return {"--set-bounce"};
    return {"--set-bounce", "--phrase=" + action.text};
}

std::vector<std::string> picture_session_lists(const PictureDomain& domain) {
    std::vector<std::string> lists;
    std::string aliases;
    for (const std::string& alias : domain.aliases)
        aliases += (aliases.empty() ? "" : ",") + alias;
    if (!aliases.empty())
        lists.push_back("--domain-aliases=" + aliases);
    std::string addresses;
    for (const PictureMail& mail : domain.mails) {
        addresses += (addresses.empty() ? "" : ";") + mail.name;
        for (const std::string& alias : mail.aliases)
            addresses += "," + alias;
    }
    if (!addresses.empty())
        lists.push_back("--mail-addresses=" + addresses);
    return lists;
}

CommandLine turn_on_to_picture(const PictureDomain& domain, std::vector<std::string> action_options) {
    return with(with({"--turn-on-domain", "--domain-name=" + domain.name}, std::move(action_options)),
                picture_session_lists(domain));
}

CommandLine turn_off_to_picture(const PictureDomain& domain) {
    return with({"--turn-off-domain", "--domain-name=" + domain.name}, picture_session_lists(domain));
}

CommandLine add_mailname_with_quota(const std::string& domain, const PictureMail& mail) {
    return with(add_mailname(domain, mail.name), {"--disk-quota=" + std::to_string(mail.quota)});
}

CommandLine add_domain_alias(const std::string& domain, const std::string& alias,
                             std::vector<std::string> action_options, std::vector<std::string> lists) {
    return with(with({"--add-domain-alias", "--domain-name=" + domain, "--domain-alias-name=" + alias},
                     std::move(action_options)),
                std::move(lists));
}

CommandLine add_alias(const std::string& domain, const std::string& mail_name, const std::string& alias,
                      std::vector<std::string> lists) {
    return with({"--add-alias", "--domain-name=" + domain, "--mailname=" + mail_name, "--alias=" + alias},
                std::move(lists));
}

}  // namespace crelm::audit
