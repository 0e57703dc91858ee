// Lookups in a constant database of qmail's users/cdb format: found and
// missing keys among many that share hash tables, and a damaged file.
#include <fcntl.h>
#include <unistd.h>

#include "auth/auth_support.h"
#include "auth/cdb_lookup.h"

namespace sorvane::test {
namespace {

using crelm::auth::cdb_find;
using crelm::auth::CdbLookup;

class CdbLookupTest : public SandboxTest {
protected:
    CdbLookup find(const std::string& content, const std::string& key, std::string& value) {
        const std::string path = scratch_dir() + "/test.cdb";
        write_file(path, content, 0644);
        const int fd = open(path.c_str(), O_RDONLY);
        const CdbLookup result = cdb_find(fd, key, value);
        close(fd);
        return result;
    }
};

TEST_F(CdbLookupTest, HashIsTheFormatsHash) {
    // h = 5381; h = h * 33 ^ byte
    EXPECT_EQ(crelm::auth::cdb_hash(""), 5381U);
    EXPECT_EQ(crelm::auth::cdb_hash("a"), (5381U * 33U) ^ 'a');
}

TEST_F(CdbLookupTest, FindsEveryKeyAmongThousands) {
    std::vector<std::pair<std::string, std::string>> records;
    for (int i = 0; i < 3000; ++i)
        records.emplace_back("!example.test-user" + std::to_string(i) + std::string(1, '\0'),
                             "popuser\0" + std::to_string(i));
    const std::string cdb = make_cdb(records);
    for (int i : {0, 1, 1499, 2999}) {
        std::string value;
        ASSERT_EQ(find(cdb, records[i].first, value), CdbLookup::found) << i;
        EXPECT_EQ(value, records[i].second);
    }
}

TEST_F(CdbLookupTest, MissingKeysAreMissing) {
    const std::string cdb = make_cdb({{"!a", "1"}, {"!b", "2"}});
    std::string value;
    EXPECT_EQ(find(cdb, "!c", value), CdbLookup::missing);
    // the key without its last byte, and with one more
    EXPECT_EQ(find(cdb, "!", value), CdbLookup::missing);
    EXPECT_EQ(find(cdb, "!ab", value), CdbLookup::missing);
    EXPECT_EQ(find(make_cdb({}), "!a", value), CdbLookup::missing);
}

TEST_F(CdbLookupTest, FirstOfTwoRecordsWins) {
    std::string value;
    ASSERT_EQ(find(make_cdb({{"!a", "first"}, {"!a", "second"}}), "!a", value), CdbLookup::found);
    EXPECT_EQ(value, "first");
}

TEST_F(CdbLookupTest, DamagedFileFails) {
    const std::string cdb = make_cdb({{"!a", "1"}, {"!b", "2"}});
    std::string value;
    EXPECT_EQ(find(cdb.substr(0, 100), "!a", value), CdbLookup::failed);
    // the header whole, the tables and records cut off
    EXPECT_EQ(find(cdb.substr(0, 2052), "!a", value), CdbLookup::failed);
}

}  // namespace
}  // namespace sorvane::test
