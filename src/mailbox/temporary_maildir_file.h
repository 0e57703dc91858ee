// A file being written in a Maildir's "tmp" folder before it is renamed into
// place. Until it is committed, its owner removes it on every way out, so no
// failure leaves a temporary file behind.
#pragma once

#include <sys/types.h>

#include <string>

#include "util/unique_fd.h"

namespace crelm::mailbox {

class TemporaryMaildirFile {
public:
    TemporaryMaildirFile() = default;
    TemporaryMaildirFile(const TemporaryMaildirFile&) = delete;
    TemporaryMaildirFile& operator=(const TemporaryMaildirFile&) = delete;
    ~TemporaryMaildirFile() { discard(); }

    // One attempt to create "tmp/<name>" in the Maildir open on maildir_fd,
    // write-only with mode 0644. Succeeds only if the name did not exist, the
    // new file is not a link, the name still leads to the opened file and it
    // could be truncated. On failure nothing of this attempt is left and
    // errno tells why.
    bool create(int maildir_fd, const std::string& name);

    int fd() const { return file_.get(); }
    const std::string& name() const { return name_; }

    // Closes the file, returning close's result.
    int close() { return file_.close(); }

    // Renames the file to target in the Maildir and flushes the Maildir
    // (fsync); from then on it is no longer removed. false with errno set
    // when the rename or the flush fails.
    bool commit(int maildir_fd, const char* target);

    // Closes and removes the file if it is still the one created here; keeps
    // errno.
    void discard();

private:
    crelm::util::UniqueFd tmp_dir_;
    crelm::util::UniqueFd file_;
    std::string name_;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
    bool created_ = false;
};

}  // namespace crelm::mailbox
