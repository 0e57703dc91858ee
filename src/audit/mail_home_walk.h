// One pass over a mail name's home: every entry is examined once, without
// following a link and without opening a file, to find what root should
// never act on (links, FIFOs, devices, sockets, files with other names) and
// to note the entries of the Maildir++ tree that the checks look at.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace crelm::audit {

enum class UnsafeKind { link, special, hard_link };

struct UnsafeEntry {
    std::string path;  // relative to the home
    UnsafeKind kind = UnsafeKind::link;
};

struct HomeWalk {
    // The entries asked for (paths relative to the home), as found: their
    // lstat, or nothing when missing.
    std::vector<std::optional<struct stat>> watched;
    // Unsafe entries in the order met, at most kUnsafeKept of them; the
    // count holds them all.
    std::vector<UnsafeEntry> unsafe;
    std::size_t unsafe_count = 0;
    // The space "@attachments" takes, counted as the quota command counts
    // it: the directory itself and every entry below it.
    long long attachments_bytes = 0;
    // Copies that a killed edit of ".qmail" left in the home
    // (".qmail.tmp.XXXXXX", or the ".qmail.tmp" of older runs).
    std::vector<std::string> temporaries;
    // Empty when every directory was read; else "<path>: <reason>" of the
    // first one that could not be.
    std::string failure;
};

inline constexpr std::size_t kUnsafeKept = 16;

// Walks the home open on home_fd (not closed). However deep the home goes,
// a few directories are open at a time: a directory's entries are listed,
// then its subdirectories are entered one by one; below the first levels
// the walk climbs back through "..", checked to be the directory it came
// from. watched_paths are paths
// relative to the home ("Maildir/.Spam/cur") of entries of at most a few
// levels down.
HomeWalk walk_home(int home_fd, const std::vector<std::string>& watched_paths);

}  // namespace crelm::audit
