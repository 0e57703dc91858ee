#include <sys/stat.h>

#include <algorithm>

#include "audit/store_checks.h"

namespace crelm::audit {

const std::string* AddressIndex::mail_name(const std::string& local, const std::string& domain) const {
    const std::string address = local + "@" + domain;
    const auto found = mail_name_of.find(address);
    if (found != mail_name_of.end())
        return &found->second;
    // Rare: only rows no record explains get this far.
    const auto home = homes_found.find(address);
    if (home != homes_found.end())
        return &home->second;
    struct stat info {};
    const std::string path = mailnames_dir + "/" + domain + "/" + local;
    if (local.find('/') != std::string::npos || ::lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return nullptr;
    return &homes_found.emplace(address, local).first->second;
}

AddressIndex build_address_index(const ServerModel& model, const std::string& mailnames_dir) {
    AddressIndex index;
    index.mailnames_dir = mailnames_dir;
    index.mail_name_of.reserve(model.mail_names.size() + model.mail_aliases.size());
    for (const auto& [key, facts] : model.mail_names)
        index.mail_name_of.emplace(facts.name + "@" + facts.domain, facts.name);
    // An alias record reaches its home's mail name, whether or not that
    // has its own record: the mail name check reports what is missing.
    for (const MailAliasFacts& alias : model.mail_aliases)
        index.mail_name_of.emplace(alias.alias + "@" + alias.domain, alias.mail_name);
    for (const auto& [alias, domain] : model.domain_aliases)
        index.aliases_of[domain].push_back(alias);
    for (auto& [domain, aliases] : index.aliases_of)
        std::sort(aliases.begin(), aliases.end());
    return index;
}

bool known_only_to_store(const ServerModel& model, const std::string& name) {
    if (model.domain_aliases.count(name) != 0)
        return false;
    const auto found = model.domains.find(name);
    if (found == model.domains.end())
        return true;
    const DomainFacts& facts = found->second;
    return facts.plus_record == nullptr && !facts.has_dir && !facts.in_rcpthosts && !facts.in_virtualdomains;
}

bool split_address(const std::string& address, std::string& local, std::string& domain) {
    const std::size_t at = address.rfind('@');
    if (at == std::string::npos)
        return false;
    local = address.substr(0, at);
    domain = address.substr(at + 1);
    return true;
}

}  // namespace crelm::audit
