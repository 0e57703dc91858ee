#include "support/repeated_text.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace sorvane::test {
namespace {

constexpr std::size_t kBlock = std::size_t{2} << 20;

[[noreturn]] void fail(const char* what) {
    throw std::runtime_error(std::string("RepeatedText: ") + what + ": " + std::strerror(errno));
}

// A memory file of one block filled with the byte.
int block_file(char repeated) {
    const int fd = memfd_create("repeated-text", MFD_CLOEXEC);
    if (fd < 0)
        fail("memfd_create");
    if (ftruncate(fd, static_cast<off_t>(kBlock)) != 0)
        fail("ftruncate");
    void* block = mmap(nullptr, kBlock, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (block == MAP_FAILED)
        fail("mmap");
    std::memset(block, repeated, kBlock);
    munmap(block, kBlock);
    return fd;
}

}  // namespace

RepeatedText::RepeatedText(const std::string& head, char repeated, std::size_t repeated_count)
    : size_(head.size() + repeated_count) {
    if (head.size() > kBlock)
        throw std::invalid_argument("RepeatedText: the head is longer than a block");
    mapped_ = (size_ + kBlock - 1) / kBlock * kBlock;
    // One reservation first, so that the blocks lie one after another.
    void* area = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (area == MAP_FAILED)
        fail("mmap");
    data_ = static_cast<char*>(area);
    const int fd = block_file(repeated);
    for (std::size_t offset = 0; offset < mapped_; offset += kBlock) {
        // Private mappings: the head written below copies its own page only.
        if (mmap(data_ + offset, kBlock, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd, 0) == MAP_FAILED) {
            close(fd);
            munmap(data_, mapped_);
            fail("mmap");
        }
    }
    close(fd);
    std::memcpy(data_, head.data(), head.size());
}

RepeatedText::~RepeatedText() {
    munmap(data_, mapped_);
}

}  // namespace sorvane::test
