#include "audit/server_model.h"

#include <algorithm>

namespace crelm::audit {

bool DomainFacts::enabled() const {
    if (auth != nullptr)
        return auth->status == 0;
    // Switching a domain off takes it out of rcpthosts and virtualdomains
    // and rejects its mail; anything short of that is an enabled domain
    // that lacks something.
    return in_rcpthosts || in_virtualdomains || !in_rejectnonexist;
}

namespace {

// Splits "<mailnames>/<a>/<b>" (two components) or "<mailnames>/<a>" (one)
// off the mail names directory; false for any other home.
bool home_components(const std::string& mailnames, const std::string& home, std::vector<std::string>& parts) {
    if (home.size() <= mailnames.size() + 1 || home.compare(0, mailnames.size(), mailnames) != 0 ||
        home[mailnames.size()] != '/')
        return false;
    parts.clear();
    std::size_t start = mailnames.size() + 1;
    while (start <= home.size()) {
        std::size_t slash = home.find('/', start);
        if (slash == std::string::npos)
            slash = home.size();
        if (slash == start)
            return false;
        parts.push_back(home.substr(start, slash - start));
        start = slash + 1;
    }
    return !parts.empty() && parts.size() <= 2;
}

void add_control_lines(const ServerSnapshot& server, ServerModel& model) {
    for (const std::string& line : server.virtualdomains.lines) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos || colon == 0 || colon + 1 == line.size())
            continue;
        const std::string name = line.substr(0, colon);
        const std::string target = line.substr(colon + 1);
        if (name == target)
            model.domains[name].in_virtualdomains = true;
        else
            model.domain_aliases.emplace(name, target);
    }
}

void mark_lines(const LineFile& file, ServerModel& model, bool DomainFacts::*flag) {
    for (const std::string& line : file.lines) {
        auto found = model.domains.find(line);
        if (found != model.domains.end())
            found->second.*flag = true;
    }
}

void add_records(const ServerSnapshot& server, ServerModel& model) {
    std::vector<std::string> parts;
    for (const AssignRecord& record : server.assign.records) {
        if (!home_components(server.mailnames_dir, record.home, parts)) {
            model.odd_records.push_back(&record);
            continue;
        }
        if (record.kind == '+') {
            if (parts.size() != 1 || parts[0] != record.key) {
                model.odd_records.push_back(&record);
                continue;
            }
            model.domains[record.key].plus_record = &record;
            continue;
        }
        if (parts.size() != 2 || record.key.size() <= parts[0].size() + 1 ||
            record.key.compare(0, parts[0].size(), parts[0]) != 0 || record.key[parts[0].size()] != '-') {
            model.odd_records.push_back(&record);
            continue;
        }
        const std::string local = record.key.substr(parts[0].size() + 1);
        if (local == parts[1]) {
            MailNameFacts& facts = model.mail_names[{parts[0], parts[1]}];
            facts.domain = parts[0];
            facts.name = parts[1];
            facts.record = &record;
        } else {
            model.mail_aliases.push_back({parts[0], local, parts[1], &record});
        }
    }
    for (const MailAliasFacts& alias : model.mail_aliases) {
        auto found = model.mail_names.find({alias.domain, alias.mail_name});
        if (found != model.mail_names.end())
            found->second.aliases.push_back(alias.alias);
    }
    for (auto& [key, facts] : model.mail_names)
        std::sort(facts.aliases.begin(), facts.aliases.end());
}

}  // namespace

ServerModel build_model(const ServerSnapshot& server) {
    ServerModel model;
    add_control_lines(server, model);
    add_records(server, model);
    for (const std::string& dir : server.domain_dirs)
        model.domains[dir].has_dir = true;
    for (const AuthDomainRow& row : server.stores.auth_domains) {
        // Domain aliases have store rows of their own, copies of their
        // domain's: they are not domains.
        if (model.domain_aliases.count(row.name) == 0)
            model.domains[row.name].auth = &row;
    }
    for (auto& [alias, domain] : model.domain_aliases) {
        auto found = model.domains.find(alias);
        if (found == model.domains.end())
            continue;
        if (found->second.plus_record != nullptr || found->second.has_dir)
            model.aliases_hosted_too.push_back(alias);
        model.domains.erase(found);
    }
    mark_lines(server.rcpthosts, model, &DomainFacts::in_rcpthosts);
    mark_lines(server.rejectnonexist, model, &DomainFacts::in_rejectnonexist);
    mark_lines(server.locals, model, &DomainFacts::in_locals);
    return model;
}

std::string domain_of(const ServerModel& model, const std::string& name) {
    if (model.domains.count(name) != 0)
        return name;
    auto alias = model.domain_aliases.find(name);
    return alias == model.domain_aliases.end() ? std::string() : alias->second;
}

}  // namespace crelm::audit
