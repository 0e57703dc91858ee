// Helpers of the mailbox tests: Maildir trees on disk, messages, and running
// a piece of the library in a child process with its output captured.
#pragma once

#include <sys/types.h>

#include <functional>
#include <initializer_list>
#include <string>

#include "support/sandbox.h"

namespace sorvane::test {

// Creates maildir with tmp, new and cur, and each named subfolder (".Spam")
// with its own tmp, new, cur and a "maildirfolder" marker.
void make_maildir(const std::string& maildir, std::initializer_list<std::string> subfolders = {});

// Writes a message file of the given size at path.
void write_message(const std::string& path, std::size_t size);

// The mailbox directory of a mail name under the default mail names root,
// with its Maildir (subfolders .Spam and .Sent) and "@attachments".
std::string make_mailbox(const std::string& domain, const std::string& mailname);

// Runs body in a forked child with standard output and standard error
// captured; the child's exit status is body's result.
ProcessResult run_in_child(const std::function<int()>& body);

// Modification time of path in seconds (lstat).
time_t mtime_of(const std::string& path);

// Names in a directory, "." and ".." left out, sorted.
std::vector<std::string> names_in(const std::string& dir);

}  // namespace sorvane::test
