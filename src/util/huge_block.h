// Memory of its own for a large table that a process forks over and over
// (a batch's lines of assign): mapped privately, aligned to 2 MiB and
// advised into huge pages where the system allows, so that each fork copies
// a few page entries for it instead of one for every 4 KiB, and each forked
// process reads it without faulting page after page in.
#pragma once

#include <cstddef>

namespace crelm::util {

class HugeBlock {
public:
    HugeBlock() = default;
    ~HugeBlock();
    HugeBlock(HugeBlock&& other) noexcept;
    HugeBlock& operator=(HugeBlock&& other) noexcept;
    HugeBlock(const HugeBlock&) = delete;
    HugeBlock& operator=(const HugeBlock&) = delete;

    // Maps size bytes (zeroed), dropping what was held. false (errno set)
    // when the system has no memory for them.
    bool allocate(std::size_t size);

    char* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    void release();

    void* mapping_ = nullptr;
    std::size_t mapping_size_ = 0;
    char* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace crelm::util
