// One lookup in a constant database: the format qmail-newu compiles
// users/assign into (users/cdb). A 2048-byte header of 256 (position, slot
// count) pairs picks a hash table by the key hash's low byte; each table
// slot holds (hash, record position), and a record is (key length, value
// length, key, value); all numbers are 32-bit little-endian. A lookup reads
// one header entry, a few slots and one record, never the whole file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace crelm::auth {

// The hash of the format: h = 5381, then h = (h * 33) ^ byte, modulo 2^32.
std::uint32_t cdb_hash(std::string_view key);

enum class CdbLookup { found, missing, failed };

// The first value stored under key in the database open on fd. failed (errno
// kept, or EINVAL for a damaged file) when the file cannot be read as one.
CdbLookup cdb_find(int fd, std::string_view key, std::string& value);

}  // namespace crelm::auth
