// Copies that a killed edit left beside the file it was to replace:
// "<file>.tmp.XXXXXX", or the "<file>.tmp" of older runs. qmail never reads
// them and the next edit of the file removes them, but until then the
// server is not what an undisturbed run leaves.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "audit/audit_context.h"

namespace crelm::audit {

// Whether name is such a copy of file.
bool is_edit_temporary(std::string_view name, std::string_view file);

// Reports each copy (paths), one notice each, for a person: the next
// sorvane command that edits the file removes it.
void report_edit_temporaries(const AuditContext& context, const std::vector<std::string>& paths);

// The copies of the control files and of assign in /var/qmail.
void check_control_temporaries(const AuditContext& context);

}  // namespace crelm::audit
