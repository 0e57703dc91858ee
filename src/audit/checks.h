// The audit's checks, one area each. Each reads the context and adds what
// it finds; none changes anything.
#pragma once

#include "audit/audit_context.h"

namespace crelm::audit {

// rcpthosts, virtualdomains, locals, rejectnonexist and assign against the
// hosted domains and their aliases.
void check_control_files(const AuditContext& context);
// Each mail name's record, home, ".qmail", Maildir++ tree and maildirsize.
void check_mail_names(const AuditContext& context);
// The three stores: integrity, schema, rows against assign, the key file.
void check_stores(const AuditContext& context);
// Key directories of domains that are neither hosted nor a domain alias.
void check_domain_keys(const AuditContext& context);
// Hosted domains and domain aliases that are the host's own names, and
// the host's names missing from locals.
void check_host_names(const AuditContext& context);
// Configured roots that are symbolic links.
void check_root_links(const AuditContext& context);
// What the server lacks for sorvane to work at all: accounts, qmail's
// programs and directories, the service helper, the configuration and the
// stores' directory; each with what a person must do.
void check_readiness(const AuditContext& context);

}  // namespace crelm::audit
