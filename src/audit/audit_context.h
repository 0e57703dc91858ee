// What every check is given: the server as read, its model, the domains the
// operator asked about, and where findings go.
#pragma once

#include <set>
#include <string>

#include "audit/findings.h"
#include "audit/server_model.h"
#include "audit/server_snapshot.h"

namespace crelm::audit {

struct AuditScope {
    std::set<std::string> domains;  // ASCII, lower case; empty: the whole server
    bool whole_server() const { return domains.empty(); }
    bool covers(const std::string& domain) const { return domains.empty() || domains.count(domain) != 0; }
};

struct AuditContext {
    const ServerSnapshot& server;
    const ServerModel& model;
    const AuditScope& scope;
    Findings& findings;
};

}  // namespace crelm::audit
