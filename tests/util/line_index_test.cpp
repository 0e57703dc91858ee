// The line index finds every id entered with a hash, forgets erased ones,
// keeps them all when it grows past its reservation, and tells ids of
// hashes that share their home slot apart by their tags.
#include "util/line_index.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using crelm::util::LineIndex;

std::vector<LineIndex::Id> sorted(std::vector<LineIndex::Id> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

// Hashes are told apart by their high halves (the low ones may differ and
// still give the same answer: the table checks each line it is given).
TEST(LineIndexTest, FindsEveryIdOfAHashAndForgetsErasedOnes) {
    LineIndex index;
    ASSERT_TRUE(index.reserve(10));
    const std::uint64_t hash = 0x123456789abcdefULL;
    for (LineIndex::Id id : {7u, 3u, 9u})
        ASSERT_TRUE(index.insert(hash, id));
    ASSERT_TRUE(index.insert(hash + (std::uint64_t{1} << 32), 4));
    EXPECT_EQ(sorted(index.find(hash)), (std::vector<LineIndex::Id>{3, 7, 9}));
    index.erase(hash, 7);
    index.erase(hash, 5);  // never entered
    EXPECT_EQ(sorted(index.find(hash)), (std::vector<LineIndex::Id>{3, 9}));
    EXPECT_EQ(index.find(hash + (std::uint64_t{1} << 32)), std::vector<LineIndex::Id>{4});
    EXPECT_EQ(index.find(42), std::vector<LineIndex::Id>{});
}

TEST(LineIndexTest, HashesOfOneHomeSlotAreToldApartByTheirTags) {
    LineIndex index;
    ASSERT_TRUE(index.reserve(4));
    // The same low bits of the tag (the home slot), other high bits.
    const std::uint64_t one = std::uint64_t{0x00010001} << 32;
    const std::uint64_t other = std::uint64_t{0x00020001} << 32;
    ASSERT_TRUE(index.insert(one, 1));
    ASSERT_TRUE(index.insert(other, 2));
    ASSERT_TRUE(index.insert(one, 3));
    EXPECT_EQ(sorted(index.find(one)), (std::vector<LineIndex::Id>{1, 3}));
    EXPECT_EQ(index.find(other), std::vector<LineIndex::Id>{2});
    index.erase(one, 1);
    EXPECT_EQ(index.find(one), std::vector<LineIndex::Id>{3});
    EXPECT_EQ(index.find(other), std::vector<LineIndex::Id>{2});
}

TEST(LineIndexTest, GrowingPastItsReservationKeepsEveryEntry) {
    LineIndex index;
    ASSERT_TRUE(index.reserve(1));
    constexpr LineIndex::Id kEntries = 200000;
    for (LineIndex::Id id = 0; id < kEntries; ++id)
        ASSERT_TRUE(index.insert(std::uint64_t{id} * 0x9E3779B97F4A7C15ULL, id));
    for (LineIndex::Id id = 0; id < kEntries; id += 997)
        index.erase(std::uint64_t{id} * 0x9E3779B97F4A7C15ULL, id);
    for (LineIndex::Id id = 0; id < kEntries; ++id) {
        const std::vector<LineIndex::Id> found = index.find(std::uint64_t{id} * 0x9E3779B97F4A7C15ULL);
        const bool erased = id % 997 == 0;
        ASSERT_EQ(std::count(found.begin(), found.end(), id), erased ? 0 : 1) << id;
    }
}

}  // namespace
