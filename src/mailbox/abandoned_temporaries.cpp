#include "mailbox/abandoned_temporaries.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <vector>

#include "mailbox/open_directory.h"

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

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

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
    crelm::util::UniqueFd tmp = open_directory_at(maildir_fd, "tmp");
    if (!tmp.valid())
        return;
    // The listing gets a descriptor of its own; the names are removed
    // through the one kept open, after the listing is done.
    const int listing_fd = ::dup(tmp.get());
    if (listing_fd < 0)
        return;
    std::unique_ptr<DIR, DirCloser> listing(::fdopendir(listing_fd));
    if (!listing) {
        ::close(listing_fd);
        return;
    }
    std::vector<std::string> abandoned;
    while (const dirent* entry = ::readdir(listing.get())) {
        long pid = 0;
        if (maildirsize_temporary_writer(entry->d_name, host, pid) && pid != ::getpid() && !process_runs(pid))
            abandoned.emplace_back(entry->d_name);
    }
    for (const std::string& name : abandoned) {
        struct stat info {};
        if (::fstatat(tmp.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(info.st_mode))
            ::unlinkat(tmp.get(), name.c_str(), 0);
    }
}

}  // namespace crelm::mailbox
