#include "support/repeated_text.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sorvane::test {
namespace {

constexpr std::size_t kBlock = std::size_t{2} << 20;

[[noreturn]] void fail(const char* what, int error) {
    throw std::runtime_error(std::string("RepeatedText: ") + what + ": " + std::strerror(error));
}

// A descriptor closed when it goes out of scope.
struct OwnedFd {
    int fd;
    ~OwnedFd() {
        if (fd >= 0)
            close(fd);
    }
};

// Gives the memory file one block filled with the byte.
void fill_block_file(int fd, char repeated) {
    if (ftruncate(fd, static_cast<off_t>(kBlock)) != 0)
        fail("ftruncate", errno);
    void* block = mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (block == MAP_FAILED)
        fail("mmap", errno);
    std::memset(block, repeated, kBlock);
    munmap(block, kBlock);
}

}  // namespace

RepeatedText::RepeatedText(const std::string& head, char repeated, std::size_t repeated_count)
    : size_(head.size() + repeated_count) {
    if (head.size() > kBlock)
        throw std::invalid_argument("RepeatedText: the head is longer than a block");
    const OwnedFd file{memfd_create("repeated-text", MFD_CLOEXEC)};
    if (file.fd < 0)
        fail("memfd_create", errno);
    fill_block_file(file.fd, repeated);
    mapped_ = (size_ + kBlock - 1) / kBlock * kBlock;
    // One reservation first, so that the blocks lie one after another.
    void* area = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (area == MAP_FAILED)
        fail("mmap", errno);
    data_ = static_cast<char*>(area);
    for (std::size_t offset = 0; offset < mapped_; offset += kBlock) {
        // Private mappings: the head written below copies its own page only.
        if (mmap(data_ + offset, kBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file.fd, 0) == MAP_FAILED) {
            const int error = errno;
            munmap(data_, mapped_);
            fail("mmap", error);
        }
    }
    std::memcpy(data_, head.data(), head.size());
}

RepeatedText::~RepeatedText() {
    munmap(data_, mapped_);
}

}  // namespace sorvane::test
