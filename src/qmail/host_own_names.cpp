#include "qmail/host_own_names.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/host_fqdn.h"
#include "runtime/host_name_rules.h"
#include "util/unique_fd.h"

namespace crelm::qmail {
namespace {

constexpr const char* kControlMe = "/var/qmail/control/me";

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// The first line of control/me without surrounding white space; empty when
// the file is missing, is not a regular file or cannot be read. The control
// directory is root's, so a link there is the administrator's and followed;
// the file is opened without blocking, so that a FIFO cannot hold the
// command.
std::string control_me_name() {
    const util::UniqueFd fd(::open(kControlMe, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd.valid() || ::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return {};
    char buffer[1024];
    ssize_t got = 0;
    do
        got = ::read(fd.get(), buffer, sizeof buffer);
    while (got < 0 && errno == EINTR);
    if (got <= 0)
        return {};
    std::string line(buffer, static_cast<std::size_t>(got));
    line = line.substr(0, line.find('\n'));
    while (!line.empty() && is_blank(line.back()))
        line.pop_back();
    const auto start = line.find_first_not_of(" \t\r\f\v");
    return start == std::string::npos ? std::string() : line.substr(start);
}

bool same_name(const std::string& one, const std::string& other) {
    return !other.empty() && ::strcasecmp(one.c_str(), other.c_str()) == 0;
}

}  // namespace

std::optional<std::string> host_own_name_refusal(const std::string& domain) {
    if (const char* reason = hosted_name_refusal(domain))
        return std::string(reason);
    if (same_name(domain, control_me_name()) || same_name(domain, known_host_fqdn()))
        return std::string("it is this host's own name");
    return std::nullopt;
}

}  // namespace crelm::qmail
