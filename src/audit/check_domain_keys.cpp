#include "audit/checks.h"

namespace crelm::audit {

void check_domain_keys(const AuditContext&) {}

}  // namespace crelm::audit
