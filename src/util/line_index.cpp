#include "util/line_index.h"

#include <bit>

namespace crelm::util {

std::uint32_t LineIndex::tag_of(std::uint64_t hash) {
    const auto tag = static_cast<std::uint32_t>(hash >> 32);
    return tag == 0 ? 1 : tag;
}

bool LineIndex::reserve(std::size_t expected) {
    // At most half full, with room for a batch's new lines besides.
    const std::size_t capacity = std::bit_ceil(2 * expected + 65536);
    if (capacity <= capacity_)
        return true;
    HugeBlock old = std::move(block_);
    const std::size_t old_capacity = capacity_;
    if (!block_.allocate(capacity * sizeof(Slot))) {
        block_ = std::move(old);
        return false;
    }
    capacity_ = capacity;
    used_ = 0;
    for (std::size_t i = 0; i < capacity_; ++i)
        slots()[i] = Slot{0, kFree};
    const Slot* previous = reinterpret_cast<const Slot*>(old.data());
    for (std::size_t i = 0; i < old_capacity; ++i)
        if (previous[i].id != kFree && previous[i].id != kErased) {
            // Only the tag is kept; the home slot of a moved entry is found
            // from it (it was placed by the same rule).
            Slot* slot = slots();
            std::size_t at = previous[i].tag & (capacity_ - 1);
            while (slot[at].id != kFree)
                at = (at + 1) & (capacity_ - 1);
            slot[at] = previous[i];
            ++used_;
        }
    return true;
}

bool LineIndex::grow() {
    return reserve(capacity_);
}

bool LineIndex::insert(std::uint64_t hash, Id id) {
    if (capacity_ == 0 || 4 * (used_ + 1) > 3 * capacity_) {
        if (!grow())
            return false;
    }
    const std::uint32_t tag = tag_of(hash);
    Slot* slot = slots();
    std::size_t at = tag & (capacity_ - 1);
    while (slot[at].id != kFree && slot[at].id != kErased)
        at = (at + 1) & (capacity_ - 1);
    if (slot[at].id == kFree)
        ++used_;
    slot[at] = Slot{tag, id};
    return true;
}

void LineIndex::erase(std::uint64_t hash, Id id) {
    if (capacity_ == 0)
        return;
    const std::uint32_t tag = tag_of(hash);
    Slot* slot = slots();
    for (std::size_t at = tag & (capacity_ - 1); slot[at].id != kFree; at = (at + 1) & (capacity_ - 1))
        if (slot[at].id == id && slot[at].tag == tag) {
            slot[at].id = kErased;
            return;
        }
}

std::vector<LineIndex::Id> LineIndex::find(std::uint64_t hash) const {
    std::vector<Id> ids;
    if (capacity_ == 0)
        return ids;
    const std::uint32_t tag = tag_of(hash);
    const Slot* slot = slots();
    for (std::size_t at = tag & (capacity_ - 1); slot[at].id != kFree; at = (at + 1) & (capacity_ - 1))
        if (slot[at].tag == tag && slot[at].id != kErased)
            ids.push_back(slot[at].id);
    return ids;
}

}  // namespace crelm::util
