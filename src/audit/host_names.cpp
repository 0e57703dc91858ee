#include "audit/host_names.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "qmail/control_names.h"

namespace crelm::audit {

namespace {

struct AddrInfoFree {
    void operator()(addrinfo* info) const { freeaddrinfo(info); }
};

// The canonical name of the host as sorvane's domain rename resolves it
// (the host name, IPv4, canonical name with a dot), or "".
std::string canonical_host_name() {
    char host[65] = {};
    if (::gethostname(host, sizeof host - 1) != 0)
        return std::string();
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* raw = nullptr;
    if (::getaddrinfo(host, nullptr, &hints, &raw) != 0)
        return std::string();
    const std::unique_ptr<addrinfo, AddrInfoFree> result(raw);
    if (result == nullptr || result->ai_canonname == nullptr)
        return std::string();
    const std::string name = result->ai_canonname;
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
    server.canonical_host_name = canonical_host_name();
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
    if (!server.canonical_host_name.empty() && name == server.canonical_host_name)
        return "the host's canonical name";
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
