#include "auth/cdb_lookup.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace crelm::auth {

namespace {

// No record of users/cdb comes near this: a home path and a few numbers.
constexpr std::uint32_t kMaxValueLength = 1 << 16;

bool read_exactly(int fd, void* buffer, std::size_t length, std::uint64_t position) {
    auto* bytes = static_cast<char*>(buffer);
    while (length > 0) {
        const ssize_t got = ::pread(fd, bytes, length, static_cast<off_t>(position));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            if (got == 0)
                errno = EINVAL;
            return false;
        }
        bytes += got;
        length -= static_cast<std::size_t>(got);
        position += static_cast<std::uint64_t>(got);
    }
    return true;
}

std::uint32_t little_endian(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

// Two numbers at position.
bool read_pair(int fd, std::uint64_t position, std::uint32_t& first, std::uint32_t& second) {
    std::array<unsigned char, 8> bytes{};
    if (!read_exactly(fd, bytes.data(), bytes.size(), position))
        return false;
    first = little_endian(bytes.data());
    second = little_endian(bytes.data() + 4);
    return true;
}

enum class RecordMatch { same_key, other_key, failed };

RecordMatch read_record(int fd, std::uint32_t position, std::string_view key, std::string& value) {
    std::uint32_t key_length = 0;
    std::uint32_t value_length = 0;
    if (!read_pair(fd, position, key_length, value_length))
        return RecordMatch::failed;
    if (key_length != key.size())
        return RecordMatch::other_key;
    std::string stored(key_length, '\0');
    if (!read_exactly(fd, stored.data(), stored.size(), std::uint64_t{position} + 8))
        return RecordMatch::failed;
    if (stored != key)
        return RecordMatch::other_key;
    if (value_length > kMaxValueLength) {
        errno = EINVAL;
        return RecordMatch::failed;
    }
    value.assign(value_length, '\0');
    if (!read_exactly(fd, value.data(), value.size(), std::uint64_t{position} + 8 + key_length))
        return RecordMatch::failed;
    return RecordMatch::same_key;
}

}  // namespace

std::uint32_t cdb_hash(std::string_view key) {
    std::uint32_t hash = 5381;
    for (const char c : key)
        hash = ((hash << 5) + hash) ^ static_cast<unsigned char>(c);
    return hash;
}

CdbLookup cdb_find(int fd, std::string_view key, std::string& value) {
    const std::uint32_t hash = cdb_hash(key);
    std::uint32_t table = 0;
    std::uint32_t slots = 0;
    if (!read_pair(fd, (hash & 255U) * 8U, table, slots))
        return CdbLookup::failed;
    if (slots == 0)
        return CdbLookup::missing;
    std::uint32_t slot = (hash >> 8) % slots;
    for (std::uint32_t tried = 0; tried < slots; ++tried) {
        std::uint32_t slot_hash = 0;
        std::uint32_t position = 0;
        if (!read_pair(fd, std::uint64_t{table} + std::uint64_t{slot} * 8, slot_hash, position))
            return CdbLookup::failed;
        if (position == 0)
            return CdbLookup::missing;
        if (slot_hash == hash) {
            const RecordMatch match = read_record(fd, position, key, value);
            if (match == RecordMatch::failed)
                return CdbLookup::failed;
            if (match == RecordMatch::same_key)
                return CdbLookup::found;
        }
        slot = (slot + 1) % slots;
    }
    return CdbLookup::missing;
}

}  // namespace crelm::auth
