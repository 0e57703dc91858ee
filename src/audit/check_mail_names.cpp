#include "audit/checks.h"

namespace crelm::audit {

void check_mail_names(const AuditContext&) {}

}  // namespace crelm::audit
