#include "util/stale_entries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace crelm::util {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

}  // namespace

void remove_stale_entries(int dir_fd, const std::function<bool(std::string_view name)>& stale) {
    // The listing gets a descriptor of its own, opened for reading; the names
    // are removed through dir_fd once the listing is done.
    const int listing_fd = ::openat(dir_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listing_fd < 0)
        return;
    std::unique_ptr<DIR, DirCloser> listing(::fdopendir(listing_fd));
    if (!listing) {
        ::close(listing_fd);
        return;
    }
    std::vector<std::string> found;
    while (const dirent* entry = ::readdir(listing.get())) {
        if (stale(entry->d_name))
            found.emplace_back(entry->d_name);
    }
    for (const std::string& name : found) {
        struct stat info {};
        if (::fstatat(dir_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(info.st_mode))
            ::unlinkat(dir_fd, name.c_str(), 0);
    }
}

bool is_unique_temporary(std::string_view entry, std::string_view prefix) {
    constexpr std::size_t kSuffixLength = 6;
    if (entry.size() != prefix.size() + kSuffixLength || !entry.starts_with(prefix))
        return false;
    for (const char c : entry.substr(prefix.size()))
        if (!(c >= '0' && c <= '9') && !(c >= 'a' && c <= 'z') && !(c >= 'A' && c <= 'Z'))
            return false;
    return true;
}

void remove_abandoned_temporaries(int dir_fd, const std::string& name) {
    const std::string old_style = name + ".tmp";
    const std::string prefix = old_style + ".";
    remove_stale_entries(dir_fd, [&](std::string_view entry) {
        return entry == old_style || is_unique_temporary(entry, prefix);
    });
}

}  // namespace crelm::util
