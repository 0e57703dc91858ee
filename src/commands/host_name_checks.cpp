#include "commands/host_name_checks.h"

#include <syslog.h>

#include <optional>

#include "qmail/host_own_names.h"
#include "runtime/log.h"

namespace crelm::mail::sorvane_commands {
namespace {

bool refuse_host_name(const char* kind, const std::string& name) {
    const std::optional<std::string> reason = crelm::qmail::host_own_name_refusal(name);
    if (!reason)
        return false;
    log_message(LOG_ERR, "Unable to use %s %s: %s", kind, name.c_str(), reason->c_str());
    return true;
}

}  // namespace

bool refuse_host_domain(const std::string& domain) {
    return refuse_host_name("domain", domain);
}

bool refuse_host_domain_alias(const std::string& alias) {
    return refuse_host_name("domain alias", alias);
}

}  // namespace crelm::mail::sorvane_commands
