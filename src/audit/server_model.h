// The server as qmail and the stores describe it, put together from the
// snapshot: which domains it hosts and in which state, their domain aliases,
// mail names and mail aliases. Checks and the comparison with the panel's
// picture read this instead of taking the files apart again.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "audit/server_snapshot.h"

namespace crelm::audit {

struct DomainFacts {
    bool in_rcpthosts = false;
    bool in_virtualdomains = false;  // the line <domain>:<domain>
    bool in_rejectnonexist = false;
    bool in_locals = false;
    bool has_dir = false;  // <mailnames>/<domain> is a directory
    const AssignRecord* plus_record = nullptr;
    const AuthDomainRow* auth = nullptr;
    // Mail service on: the store says so, or, without a store row, it is
    // not switched off the way sorvane switches a domain off.
    bool enabled() const;
};

struct MailNameFacts {
    std::string domain;
    std::string name;
    const AssignRecord* record = nullptr;  // the "=" record of the mail name
    std::vector<std::string> aliases;      // its mail alias records, sorted
};

// An "=" record whose home is a mail name's but whose key names another
// local part: a mail alias, or a stray record when its home is missing.
struct MailAliasFacts {
    std::string domain;
    std::string alias;
    std::string mail_name;  // the home's mail name
    const AssignRecord* record = nullptr;
};

using MailNameKey = std::pair<std::string, std::string>;  // (domain, mail name)

struct ServerModel {
    std::map<std::string, DomainFacts> domains;
    std::map<std::string, std::string> domain_aliases;  // alias -> its domain (virtualdomains)
    std::map<MailNameKey, MailNameFacts> mail_names;
    std::vector<MailAliasFacts> mail_aliases;
    // "=" or "+" records whose home is not where sorvane puts a mail name's
    // or a domain's, or whose key does not match their home.
    std::vector<const AssignRecord*> odd_records;
    // Domain aliases that also have a "+" record or a directory of their
    // own: qmail sends their mail one way, the stores another.
    std::vector<std::string> aliases_hosted_too;
};

// The model of the snapshot; pointers point into server, which must outlive
// the model.
ServerModel build_model(const ServerSnapshot& server);

// The domain whose mail a domain or domain alias reaches ("" when neither).
std::string domain_of(const ServerModel& model, const std::string& name);

}  // namespace crelm::audit
