// The domain-key directory steps of the domain alias commands, as steps
// with a status: the key directory operations throw, a command step logs
// and goes on.
#pragma once

#include <string>

namespace crelm::mail::sorvane_commands {

// Copies the key directory of domain to alias (nothing without one). 0, or
// -1 after logging "Unable to copy domain keys from %s to %s: %s".
int copy_domain_keys_step(const std::string& domain, const std::string& alias);

// Removes the key directory of domain (a missing one is no error). 0, or -1
// after logging "Unable to remove domain keys of %s: %s".
int remove_domain_keys_step(const std::string& domain);

// The careful rename of a key directory (an existing destination is
// replaced). 0, or -1 after "cannot rename domain <old> to <new>: <reason>"
// on standard error.
int rename_domain_keys_step(const std::string& old_domain, const std::string& new_domain);

}  // namespace crelm::mail::sorvane_commands
