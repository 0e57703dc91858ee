#include "runtime/host_fqdn.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "runtime/log.h"

namespace {

struct AddrInfoFree {
    void operator()(addrinfo* info) const { freeaddrinfo(info); }
};
using AddrInfo = std::unique_ptr<addrinfo, AddrInfoFree>;

constexpr const char* kFqdnAdvice =
    "It is impossible to detect the FQDN of the host.\n"
    "Please make sure that the host name is correctly specified in /etc/hosts and goes right after the host's IP "
    "address.\n"
    "Depending on your OS, you might need to set the host name in /etc/HOSTNAME or /etc/hostname.";

// The canonical name of this host, or an empty text after logging why not
// (when report is set).
std::string canonical_host_name(bool report) {
    char host[65] = {};
    if (gethostname(host, sizeof host - 1) != 0) {
        if (report)
            log_message(3, "Unable to get hostname: %s", std::strerror(errno));
        return {};
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* raw = nullptr;
    const int status = getaddrinfo(host, nullptr, &hints, &raw);
    const AddrInfo result(raw);
    if (status != 0) {
        if (report)
            log_message(3, "Unable to resolve fqdn: %s", gai_strerror(status));
        return {};
    }
    if (!result || result->ai_canonname == nullptr) {
        if (report)
            log_message(3, "Unable to resolve fqdn");
        return {};
    }
    if (std::strchr(result->ai_canonname, '.') == nullptr) {
        if (report)
            log_message(3, "Canonname is not correct fqdn");
        return {};
    }
    return result->ai_canonname;
}

}  // namespace

int detect_host_fqdn(char* buffer, std::size_t size) {
    const std::string fqdn = canonical_host_name(true);
    if (fqdn.empty()) {
        log_message(3, "%s", kFqdnAdvice);
        return -1;
    }
    if (size == 0 || fqdn.size() > size - 1) {
        log_message(3, "Buffer size is not enough to hold hostname");
        return -1;
    }
    std::memcpy(buffer, fqdn.c_str(), fqdn.size() + 1);
    return 0;
}

std::string known_host_fqdn() {
    return canonical_host_name(false);
}
