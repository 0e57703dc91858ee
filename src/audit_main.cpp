// sorvane-audit: a read-only consistency audit of the mail server that
// sorvane keeps, against itself and against the panel's records.
#include "audit/audit_run.h"

int main(int argc, char** argv) { return crelm::audit::run_audit(argc, argv); }
