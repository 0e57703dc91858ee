#include "audit/host_names.h"

#include <unistd.h>

#include <algorithm>

#include "qmail/control_names.h"

namespace crelm::audit {

namespace {

// The host's name as the system holds it, when it has a dot (as the
// canonical name sorvane's domain rename keeps must). It is not resolved:
// the audit sends nothing over the network, so a canonical name that
// differs from the host name is known only through control/me.
std::string system_host_name() {
    char host[65] = {};
    if (::gethostname(host, sizeof host - 1) != 0)
        return std::string();
    const std::string name = host;
    return name.find('.') == std::string::npos ? std::string() : qmail::lower_ascii(name);
}

bool all_digits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

void read_host_names(ServerSnapshot& server) {
    server.me_file = read_text_file(kControlMe, 4096);
    const std::vector<std::string_view> lines = text_lines(server.me_file.text);
    if (server.me_file.state == FileState::present && !lines.empty())
        server.me = qmail::lower_ascii(std::string(lines.front()));
    server.system_host_name = system_host_name();
}

std::string host_name_reason(const ServerSnapshot& server, const std::string& name) {
    if (name == "localhost")
        return "localhost";
    if (name.size() > 10 && name.compare(name.size() - 10, 10, ".localhost") == 0)
        return "a name under localhost";
    if (name.rfind("localhost.", 0) == 0)
        return "localhost with a suffix";
    if (!server.me.empty() && name == server.me)
        return "the host's name in control/me";
    if (!server.system_host_name.empty() && name == server.system_host_name)
        return "the host's own name";
    if (!name.empty() && name.front() == '[')
        return "an address literal";
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos)
        return "a name of a single label";
    if (all_digits(std::string_view(name).substr(dot + 1)))
        return "an address literal";
    return std::string();
}

}  // namespace crelm::audit
