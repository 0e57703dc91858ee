#include "mailbox/abandoned_temporaries.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "mailbox/open_directory.h"
#include "util/stale_entries.h"

namespace crelm::mailbox {
namespace {

bool all_digits(std::string_view text) {
    if (text.empty() || text.size() > 18)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

bool process_runs(long pid) { return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM; }

}  // namespace

bool maildirsize_temporary_writer(const std::string& name, const std::string& host, long& pid) {
    const std::string suffix = "." + host + "-maildirsize";
    if (name.size() <= suffix.size() || !std::string_view(name).ends_with(suffix))
        return false;
    const std::string_view stamp(name.data(), name.size() - suffix.size());
    const std::size_t dot = stamp.find('.');
    if (dot == std::string_view::npos || !all_digits(stamp.substr(0, dot)) || !all_digits(stamp.substr(dot + 1)))
        return false;
    pid = std::stol(std::string(stamp.substr(dot + 1)));
    return pid > 0;
}

void remove_abandoned_maildirsize_temporaries(int maildir_fd, const std::string& host) {
    const crelm::util::UniqueFd tmp = open_directory_at(maildir_fd, "tmp");
    if (!tmp.valid())
        return;
    crelm::util::remove_stale_entries(tmp.get(), [&](std::string_view name) {
        long pid = 0;
        return maildirsize_temporary_writer(std::string(name), host, pid) && pid != ::getpid() && !process_runs(pid);
    });
}

}  // namespace crelm::mailbox
