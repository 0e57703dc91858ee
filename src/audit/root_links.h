// Configured roots (the mail names directory, the stores' directories,
// qmail's directories) that are themselves symbolic links, as when the
// mail lives on a data disk. sorvane reaches them by the walk of
// util/nofollow.h, which follows a link on the way only when root owns it;
// the audit follows such a link at a root too, but only when the directory
// it leads to, and every directory above that, is root's and no one else
// can write it, so that no one but root can redirect what either program
// reads. Links anywhere below a root are never followed.
#pragma once

#include <optional>
#include <string>

#include "util/unique_fd.h"

namespace crelm::audit {

enum class RootLinkState {
    trusted,  // root's link to a directory only root can change
    foreign,  // the link itself is not root's: sorvane refuses it too
    exposed,  // root's link, but someone else can change where it leads
    broken,   // root's link to nothing, or to what is not a directory
};

struct RootLink {
    std::string path;    // the configured root
    std::string target;  // what the link says
    RootLinkState state = RootLinkState::broken;
    std::string why;     // for all but trusted: what is wrong, one line
};

// The link at the configured root path, or nothing when path is not a
// symbolic link (or cannot be reached at all).
std::optional<RootLink> read_root_link(const std::string& path);

// The directory at a configured root opened read-only: reached by the walk
// of util/nofollow.h, and through a link at the root itself only when
// read_root_link calls it trusted (checked again on the opened directory).
// Invalid with errno set otherwise (ELOOP for a link not followed).
util::UniqueFd open_root_directory(const std::string& path);

// The file path with its directory, when that is a configured root behind a
// link the audit follows, replaced by where the link leads (for readers such
// as SQLite that refuse every link on the way); otherwise path itself.
std::string through_root_link(const std::string& path);

}  // namespace crelm::audit
