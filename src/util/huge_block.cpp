#include "util/huge_block.h"

#include <sys/mman.h>

#include <cstdint>
#include <utility>

namespace crelm::util {
namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;

}  // namespace

HugeBlock::~HugeBlock() {
    release();
}

HugeBlock::HugeBlock(HugeBlock&& other) noexcept
    : mapping_(std::exchange(other.mapping_, nullptr)),
      mapping_size_(std::exchange(other.mapping_size_, 0)),
      data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)) {}

HugeBlock& HugeBlock::operator=(HugeBlock&& other) noexcept {
    if (this != &other) {
        release();
        mapping_ = std::exchange(other.mapping_, nullptr);
        mapping_size_ = std::exchange(other.mapping_size_, 0);
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

void HugeBlock::release() {
    if (mapping_ != nullptr)
        ::munmap(mapping_, mapping_size_);
    mapping_ = nullptr;
    mapping_size_ = 0;
    data_ = nullptr;
    size_ = 0;
}

bool HugeBlock::allocate(std::size_t size) {
    release();
    // One huge page more than needed, so that the start can be aligned.
    const std::size_t mapping_size = (size / kHugePage + 2) * kHugePage;
    void* mapping = ::mmap(nullptr, mapping_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED)
        return false;
    const auto address = reinterpret_cast<std::uintptr_t>(mapping);
    char* aligned = static_cast<char*>(mapping) + (kHugePage - address % kHugePage) % kHugePage;
    // Only advice: without huge pages the block works the same.
    (void)::madvise(aligned, mapping_size - static_cast<std::size_t>(aligned - static_cast<char*>(mapping)),
                    MADV_HUGEPAGE);
    mapping_ = mapping;
    mapping_size_ = mapping_size;
    data_ = aligned;
    size_ = size;
    return true;
}

}  // namespace crelm::util
