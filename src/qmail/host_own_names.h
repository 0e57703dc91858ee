// The names that belong to this host itself and so are never hosted as mail
// domains or domain aliases: qmail delivers their mail to the host's own
// users (root, postmaster), and hosting one would take it out of locals.
#pragma once

#include <optional>
#include <string>

namespace crelm::qmail {

// Why domain (lower-case ASCII) cannot be hosted, or nullopt: the reasons
// of hosted_name_refusal (localhost, address literals, single labels), or
// "it is this host's own name" when it equals (case aside) the first line of
// control/me or the host's fully qualified name as resolved from its host
// name. A missing or unreadable control/me and an unknown host name are no
// reason; control/me is read without blocking and only when it is (or a
// link leads to) a regular file.
std::optional<std::string> host_own_name_refusal(const std::string& domain);

}  // namespace crelm::qmail
