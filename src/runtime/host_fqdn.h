// The host's fully qualified domain name.
#pragma once

#include <cstddef>
#include <string>

// Resolves the host name (IPv4, canonical name) and writes the canonical name
// into buffer (size bytes, terminated). Returns 0; -1 when the host name
// cannot be had or resolved, has no dot, or does not fit (each logged at
// error level, with advice on /etc/hosts unless it merely did not fit).
int detect_host_fqdn(char* buffer, std::size_t size);

// The same name without a report: empty when it cannot be had. For callers
// to whom an unknown name is no failure.
std::string known_host_fqdn();
