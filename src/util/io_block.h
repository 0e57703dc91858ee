// The block in which files are read and written in pieces.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>

namespace crelm::util {

// Small enough that its buffer comes from memory the process already holds
// (a larger one is mapped afresh for every allocation, and each of its pages
// faults in on first touch: for a short command, which makes a few such
// buffers, that cost more than the reads), large enough that a table of a
// million records takes a few thousand reads.
inline constexpr std::size_t kIoBlock = std::size_t{1} << 16;

// The block for a file larger than kLargeFile: a table of a million records
// then takes a hundred reads and writes instead of thousands of each, each
// of which costs a system call and the file system's own work; the faults
// of the larger buffer are few beside the copy.
inline constexpr std::size_t kLargeIoBlock = std::size_t{1} << 20;
inline constexpr off_t kLargeFile = off_t{4} << 20;

// The block to read the file open on fd in.
inline std::size_t io_block_for(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 && info.st_size > kLargeFile ? kLargeIoBlock : kIoBlock;
}

// A buffer of size bytes for reads, left uninitialised: only what a read has
// filled is ever looked at, and clearing it first would touch each fresh
// page of a large one once more for nothing (in a batch's command process,
// where every such buffer is mapped afresh, that was a twentieth of the
// time).
inline std::unique_ptr<char[]> io_buffer(std::size_t size) {
    return std::make_unique_for_overwrite<char[]>(size);
}

}  // namespace crelm::util
