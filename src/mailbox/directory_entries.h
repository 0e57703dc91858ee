// Reading a directory in large batches straight from the kernel
// (getdents64): mailbox folders hold many thousands of entries, and counting
// them is dominated by the cost per entry.
#pragma once

#include <memory>
#include <string_view>

namespace crelm::mailbox {

struct DirectoryEntry {
    std::string_view name;
    unsigned char type;  // DT_* value; DT_UNKNOWN when the filesystem does not say
};

// The entries of the directory open on fd (not owned), "." and ".." left out.
class DirectoryEntries {
public:
    explicit DirectoryEntries(int fd);

    // Fills entry with the next one and returns true; false at the end or on
    // a read error (then error() is the errno value, else 0).
    bool next(DirectoryEntry& entry);
    int error() const { return error_; }

private:
    bool refill();

    static constexpr std::size_t kBufferSize = 64 * 1024;
    int fd_;
    std::unique_ptr<char[]> buffer_;
    std::size_t length_ = 0;
    std::size_t position_ = 0;
    int error_ = 0;
};

}  // namespace crelm::mailbox
