// Walking a directory tree to change owners and modes, or to remove it.
//
// Mail users can write inside the trees these walk: symbolic links are never
// followed (a link is skipped by the changers and removed, as a link, by
// remove_tree), the top is reached by the walk of util/nofollow.h (a link a
// mail user planted on the way gives "Unable to get entry"), directories are
// entered only through handles opened without following links, and owners
// and modes are changed on handles, never by name. A regular file with more
// than one hard link (perhaps another user's file linked into the tree)
// keeps its owner and mode: "Refused to change directory entry %s: it has
// more than one hard link\n" is reported and the walk goes on. The names of
// entries below the top are shown in messages as runtime/shown_text.h
// escapes them: a mail user's newline or control byte never reaches the
// output raw.
//
// However deep the tree, a walk holds seven descriptors at most: a
// directory's entries are read whole when it is entered, the directory
// being worked on stays open and so do the first four levels above it (a
// mail name's whole tree, from its domain's directory); a deeper parent is
// reopened through ".." on the way up (checked to be the directory the walk
// came from: "Directory %s was moved while it was walked\n" otherwise). No
// working directory is changed.
#pragma once

#include <sys/types.h>

#include <string>

// Whether the top directory itself is changed too (its subdirectories
// always are).
enum class TopDirectory { leave, change };

// Gives every regular file and directory below path owner uid and group gid.
// A missing path is only reported ("Directory entry %s doesn't exist:
// %s\n"). Any other failure ends the program: "Unable to get entry %s:
// %s\n", "Unable to open dir %s: %s\n", "Unable to close dir %s: %s\n",
// "Unable to check directory entry %s: %s\n", "Unable to chown directory
// entry %s: %s\n", "Unable to chown dir %s: %s\n" and the move above.
void chown_tree(const std::string& path, uid_t uid, gid_t gid, TopDirectory top);

// Gives regular files file_mode and directories dir_mode, by the same rules
// and messages, with "Unable to chmod directory entry %s: %s\n", "Unable to
// chmod entry %s: %s\n" (a regular file given as path) and "Unable to chmod
// dir %s: %s\n".
void chmod_tree(const std::string& path, mode_t file_mode, mode_t dir_mode, TopDirectory top);

// chown_tree, then chmod_tree. Result: 0.
int chown_chmod_tree(const std::string& path, uid_t uid, gid_t gid, mode_t file_mode, mode_t dir_mode,
                     TopDirectory top);

// Removes path and everything below it, depth first; a missing path is a
// success. 0, or 1 after the first failure, reported but not fatal: "Unable
// to get entry %s: %s\n", "Unable to unlink entry %s: %s\n", "Unable to
// unlink directory entry %s: %s\n", "Unable to remove dir %s: %s\n" and the
// directory-walking messages of chown_tree.
int remove_tree(const std::string& path);
