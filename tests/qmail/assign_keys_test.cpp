// The key checks read assign in blocks: a record cut by a read, a line
// longer than a block and the closing "." line are taken as qmail-newu
// takes them.
#include "qmail/assign_keys.h"

#include <random>

#include "qmail/control_test_support.h"
#include "util/held_lines.h"

namespace sorvane::test {
namespace {

using crelm::qmail::domain_alias_collision;
using crelm::qmail::domain_key_collision;
using crelm::qmail::mail_key_collision;
using crelm::qmail::mail_keys_in_assign;

using AssignKeysTest = ControlFilesTest;

constexpr std::size_t kMiB = std::size_t{1} << 20;

// Records of other.test's mail names, whole lines, until the text is at
// least size bytes long.
std::string filler_of_size(std::size_t size) {
    std::string text;
    for (int i = 0; text.size() < size; ++i)
        text += name_record("other.test", "user" + std::to_string(i), "user" + std::to_string(i)) + "\n";
    return text;
}

// A "=" record of other.test whose key is example.test's "info": the record
// that the checks of example.test's mail name info must find.
std::string foreign_info_record() {
    return "=example.test-info:" + owner_fields() + kMailnamesPath + "/other.test/info:::";
}

// Filler that ends a few bytes short of offset, so that the record written
// after it is cut by a read of offset bytes.
std::string filler_ending_before(std::size_t offset) {
    std::string text = filler_of_size(offset - 200);
    const std::string line = "=pad-" + std::string(offset - 20 - text.size() - 7, 'x') + ":p\n";
    return text + line;
}

TEST_F(AssignKeysTest, ARecordThatAReadCutsIsFound) {
    const std::string filler = filler_ending_before(kMiB);
    ASSERT_GT(filler.size() + 10, kMiB - 20);
    ASSERT_LT(filler.size(), kMiB);
    const std::string taken = foreign_info_record();
    write_file(kAssignPath, filler + taken + "\n.\n", 0644);
    EXPECT_EQ(mail_key_collision("example.test", "info"), taken);
    EXPECT_TRUE(mail_keys_in_assign("example.test", {"info"}).front());
    EXPECT_FALSE(mail_keys_in_assign("example.test", {"sales"}).front());
}

TEST_F(AssignKeysTest, ALineLongerThanABlockIsReadWhole) {
    const std::string taken = plus_record("example.test");
    const std::string long_line = "=" + std::string(2 * kMiB + 5, 'k') + ":popuser:1:1:/x:::";
    write_file(kAssignPath, long_line + "\n" + taken + "\n.\n", 0644);
    EXPECT_EQ(domain_key_collision("example.test"), std::nullopt);
    EXPECT_EQ(domain_alias_collision("example.test"), taken);
}

TEST_F(AssignKeysTest, ALastLineWithoutItsNewlineCounts) {
    const std::string taken = foreign_info_record();
    write_file(kAssignPath, filler_of_size(3 * kMiB) + taken, 0644);
    EXPECT_EQ(mail_key_collision("example.test", "info"), taken);
}

TEST_F(AssignKeysTest, RecordsBelowTheClosingDotDoNotCount) {
    const std::string taken = foreign_info_record();
    write_file(kAssignPath, filler_of_size(kMiB + 100) + ".\n" + taken + "\n", 0644);
    EXPECT_EQ(mail_key_collision("example.test", "info"), std::nullopt);
    EXPECT_FALSE(mail_keys_in_assign("example.test", {"info"}).front());
}

// A table larger than 4 MiB is read a megabyte at a time: a record that the
// fifth read cuts is found all the same.
TEST_F(AssignKeysTest, ARecordThatALargeReadCutsIsFound) {
    const std::string filler = filler_ending_before(5 * kMiB);
    const std::string taken = foreign_info_record();
    write_file(kAssignPath, filler + taken + "\n" + filler_of_size(kMiB) + ".\n", 0644);
    EXPECT_EQ(mail_key_collision("example.test", "info"), taken);
    EXPECT_TRUE(mail_keys_in_assign("example.test", {"info"}).front());
}

// Several keys in one read: each is told apart, whichever comes first, and
// a key above the closing "." line only counts.
TEST_F(AssignKeysTest, SeveralKeysAreLookedForInOneRead) {
    const std::string sales = name_record("example.test", "sales", "sales");
    write_file(kAssignPath, filler_of_size(kMiB) + sales + "\n" + foreign_info_record() + "\n.\n" +
                                name_record("example.test", "late", "late") + "\n",
               0644);
    EXPECT_EQ(mail_keys_in_assign("example.test", {"info", "none", "SALES", "late"}),
              (std::vector<bool>{true, false, true, false}));
    EXPECT_EQ(mail_keys_in_assign("example.test", {"sales", "sales"}), (std::vector<bool>{true, true}));
}

}  // namespace
}  // namespace sorvane::test

namespace sorvane::test {
namespace {

using crelm::qmail::mail_key_collision;
using crelm::qmail::mail_keys_in_assign;

// Random tables of look-alike domains ("a.test", "a.test-x.com", "x.com"):
// "=" records of each (keys in mixed case, homes in their own or another
// domain's directory), "+" records, lines that are no records, and records
// below the closing "." line.
class RandomAssign {
public:
    explicit RandomAssign(unsigned seed) : random_(seed) {}

    std::size_t pick(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_); }
    std::string domain() {
        static const char* const kDomains[] = {"a.test", "a.test-x.com", "x.com", "b.test"};
        return kDomains[pick(std::size(kDomains))];
    }
    std::string name() {
        static const char* const kNames[] = {"info", "x.com-info", "sales", "INFO", "com-info"};
        return kNames[pick(std::size(kNames))];
    }
    std::string line() {
        switch (pick(6)) {
        case 0:
            return plus_record(domain());
        case 1:
            return "+" + domain() + "-:" + owner_fields() + kMailnamesPath + "/" + domain() + ":-::";
        case 2:
            return "# " + name();
        default: {
            const std::string key = domain() + "-" + name();
            return name_record(domain(), pick(3) == 0 ? to_upper(key) : key, name());
        }
        }
    }
    std::string table() {
        std::string text;
        for (std::size_t i = pick(30); i > 0; --i)
            text += line() + "\n";
        text += ".\n";
        for (std::size_t i = pick(3); i > 0; --i)
            text += line() + "\n";
        return text;
    }

private:
    static std::string to_upper(std::string text) {
        for (char& c : text)
            c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        return text;
    }
    std::mt19937 random_;
};

// The checks a batch makes on the lines it holds for assign find what the
// same checks find in the file.
TEST_F(AssignKeysTest, TheHeldLinesAnswerAsTheFileDoes) {
    for (unsigned seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomAssign random(seed);
        const std::string text = random.table();
        write_file(kAssignPath, text, 0644);
        std::vector<std::pair<std::string, std::string>> queries;
        for (int i = 0; i < 6; ++i)
            queries.emplace_back(random.domain(), random.name());
        std::vector<std::optional<std::string>> from_file;
        std::vector<std::vector<bool>> keys_from_file;
        for (const auto& [domain, name] : queries) {
            from_file.push_back(mail_key_collision(domain, name));
            keys_from_file.push_back(mail_keys_in_assign(domain, {name, "info", "sales"}));
        }
        crelm::util::hold_lines(kAssignPath, crelm::util::LineTable::from_text(text));
        ASSERT_NE(crelm::util::held_lines(kAssignPath), nullptr);
        write_file(kAssignPath, "", 0644);  // the held lines must answer alone
        for (std::size_t i = 0; i < queries.size(); ++i) {
            SCOPED_TRACE(queries[i].first + " " + queries[i].second + "\n" + text);
            EXPECT_EQ(mail_key_collision(queries[i].first, queries[i].second), from_file[i]);
            EXPECT_EQ(mail_keys_in_assign(queries[i].first, {queries[i].second, "info", "sales"}), keys_from_file[i]);
        }
        crelm::util::release_held_lines();
    }
}

}  // namespace
}  // namespace sorvane::test
