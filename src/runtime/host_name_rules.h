// Names that can never be a hosted mail domain, whatever host they are on.
// qmail delivers mail for the names in control/locals to the host's own
// users; a hosted domain takes its name out of locals, so a customer who
// could host "localhost" or an address literal would receive the mail of
// root and postmaster.
#pragma once

#include <string_view>

namespace crelm {

// Why name (in lower-case ASCII) cannot be a hosted domain, or nullptr:
//   "it names the local host"    localhost and localhost.<anything>;
//   "it is an address literal"   [<anything>], a name with a ":" (IPv6),
//                                and a name whose last label is all digits
//                                (1.2.3.4; no top-level domain is numeric);
//   "it has a single label"      a name without a dot.
const char* hosted_name_refusal(std::string_view name);

}  // namespace crelm
