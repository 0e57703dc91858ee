// sorvane-audit: reads the whole mail server (or some domains), compares it
// with itself and, when given, with the panel's picture, and prints what is
// out of step. It never changes anything and runs no other program.
#pragma once

namespace crelm::audit {

inline constexpr int kAuditClean = 0;
inline constexpr int kAuditFound = 1;
inline constexpr int kAuditFailed = 2;

int run_audit(int argc, char** argv);

}  // namespace crelm::audit
