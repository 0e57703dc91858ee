// The host's own names, which no customer may host: mail to postmaster@ or
// root@ one of them is the host's. They are "localhost" and the names
// under it, the name in qmail's control/me, the host's name as the system
// holds it when it has a dot (sorvane's domain rename keeps the host's
// canonical name in rcpthosts and locals; the audit does not resolve
// names, so it takes the system's), any name of a single label, and address literals ("[1.2.3.4]", or a name whose last
// label is all digits, such as 1.2.3.4, which no top-level domain is).
#pragma once

#include <string>

#include "audit/server_snapshot.h"

namespace crelm::audit {

inline constexpr const char* kControlMe = "/var/qmail/control/me";

// Reads control/me and the system's host name.
void read_host_names(ServerSnapshot& server);

// Why name (lower-case ASCII) is one of the host's own names, e.g. "the
// host's name in control/me", or "" when it is not.
std::string host_name_reason(const ServerSnapshot& server, const std::string& name);

}  // namespace crelm::audit
