// The line edits of a domain rename: each file rewritten whole by one pass
// of edit_lines_locked (under the file's lock) per change. Each
// edited control file and assign gets owner root:root and mode 0644 back.
// Names come in lower-case ASCII.
#pragma once

#include <string>

namespace crelm::qmail {

// rcpthosts (and locals, when the host's own name is involved: it stays
// accepted and local), virtualdomains on either side of the ":", and in
// assign the homes and keys of the domain's records. true when every edit
// succeeded; a failed one has reported why and the others still run.
bool rename_domain_in_control_files(const std::string& old_domain, const std::string& new_domain);

// rejectnonexist, when it exists (a missing one is a success).
bool rename_domain_in_reject_list(const std::string& old_domain, const std::string& new_domain);

}  // namespace crelm::qmail
