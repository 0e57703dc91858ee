// The index of a line table (util/line_table.h): line ids by a 64-bit hash
// of a key, several ids to a hash. Open addressing in one huge block
// (util/huge_block.h), so that a process that forks over a million-line
// table copies few page entries for it; a forked process that adds a line
// writes one slot.
#pragma once

#include <cstdint>
#include <vector>

#include "util/huge_block.h"

namespace crelm::util {

class LineIndex {
public:
    using Id = std::uint32_t;

    // Room for expected entries without growing. false (errno set) when
    // there is no memory for it.
    bool reserve(std::size_t expected);
    // false (errno set) when the index had to grow and could not.
    bool insert(std::uint64_t hash, Id id);
    void erase(std::uint64_t hash, Id id);
    // The ids entered with hash (and a few of other hashes: the caller
    // checks each), in no order.
    std::vector<Id> find(std::uint64_t hash) const;

private:
    struct Slot {
        std::uint32_t tag;  // the hash's high half, never 0 when taken
        Id id;
    };
    static constexpr Id kFree = 0xFFFFFFFF;
    static constexpr Id kErased = 0xFFFFFFFE;

    static std::uint32_t tag_of(std::uint64_t hash);
    Slot* slots() const { return reinterpret_cast<Slot*>(block_.data()); }
    bool grow();

    HugeBlock block_;
    std::size_t capacity_ = 0;  // a power of two
    std::size_t used_ = 0;      // taken and erased slots
};

}  // namespace crelm::util
