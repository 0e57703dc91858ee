// The rename edits' line rewrites against the stream-editor scripts that
// made the same edits before: both run over look-alike names, seeded random
// tables and ".qmail" files, lines with CR and NUL inside and files without
// a final newline, and their outputs must be the same bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "qmail/assign_domain_rewrite.h"
#include "qmail/control_line_rewrites.h"
#include "qmail/control_test_support.h"
#include "qmail/mailname_rewrites.h"
#include "qmail/sed_scripts.h"
#include "util/line_rewrite.h"

namespace sorvane::test {
namespace {

using crelm::util::LineRewrite;

const std::string kRoot = "/var/qmail/mailnames";
const std::vector<std::string> kDomains = {"a.test",       "a-test",         "aXtest",     "a.test.example",
                                           "aa.test",      "a.test-x.com",   "a.testx.com"};
const std::vector<std::string> kMailNames = {"a.b", "axb", "a&b", "o'neil", "x+y", "a|b", "a\\b"};

// What the line rewrite makes of input, through a pair of memory files.
std::string rewritten(const LineRewrite& rewrite, const std::string& input) {
    const int in = memfd_create("input", MFD_CLOEXEC);
    const int out = memfd_create("output", MFD_CLOEXEC);
    EXPECT_EQ(write(in, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    lseek(in, 0, SEEK_SET);
    EXPECT_EQ(crelm::util::rewrite_stream(in, out, rewrite), crelm::util::StreamFailure::none);
    std::string result(static_cast<std::size_t>(lseek(out, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(out, result.data(), result.size(), 0), static_cast<ssize_t>(result.size()));
    close(in);
    close(out);
    return result;
}

void expect_same(const std::vector<std::string>& scripts, const LineRewrite& rewrite, const std::string& input) {
    EXPECT_EQ(rewritten(rewrite, input), run_sed(scripts, input)) << "input:\n" << input;
}

// Each text as a file with a final newline, without one, and empty.
std::vector<std::string> endings_of(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return {text, text.substr(0, text.size() - 1), text + "no newline", ""};
}

std::string pick(std::mt19937& random, const std::vector<std::string>& from) {
    return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(random)];
}

// Odd bytes that a field or line may hold.
std::string noise(std::mt19937& random) {
    return pick(random, {"", "", "", "\r", std::string(1, '\0'), ":", "x", "/", "-", " ", "\t", "\xe9"});
}

// A line of assign: records of the look-alike domains, some whole, some
// with a field too many or too few, a home elsewhere, or odd bytes.
std::string assign_line(std::mt19937& random) {
    const std::string domain = pick(random, kDomains);
    const std::string home_domain = std::uniform_int_distribution<int>(0, 3)(random) == 0 ? pick(random, kDomains) : domain;
    const std::string name = pick(random, kMailNames) + noise(random);
    const std::string ids = pick(random, {"popuser:2110:2110:", "popuser:2110:", "popuser:2110:2110:x:", ""});
    const std::string tail = pick(random, {":::", "::", "::::", ":-:ext:", ":::x", ""}) + noise(random);
    switch (std::uniform_int_distribution<int>(0, 4)(random)) {
        case 0:
        case 1:
            return "=" + domain + "-" + name + ":" + ids + kRoot + "/" + home_domain + "/" + name + tail;
        case 2:
            return "+" + domain + ":" + ids + kRoot + "/" + home_domain + tail;
        case 3:
            return noise(random) + "=" + domain + noise(random) + "-" + name + ":" + ids + kRoot + "/" + home_domain +
                   "/" + name + tail;
        default:
            return pick(random, {".", "", domain, "#" + domain, "+" + domain + ":" + kRoot + "/" + domain + ":::"});
    }
}

std::vector<std::string> random_lines(std::mt19937& random, std::size_t count,
                                      std::string (*line)(std::mt19937&)) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < count; ++i)
        lines.push_back(line(random));
    return lines;
}

// Control-file lines: each look-alike domain alone, with neighbours around
// a ":", with odd bytes.
std::vector<std::string> control_lines() {
    std::vector<std::string> lines;
    for (const std::string& domain : kDomains) {
        lines.push_back(domain);
        lines.push_back(domain + "\r");
        lines.push_back(std::string(1, '\0') + domain);
        for (const std::string& other : kDomains) {
            lines.push_back(domain + ":" + other);
            lines.push_back(domain + ":" + other + ":" + domain);
        }
    }
    lines.push_back("");
    return lines;
}

class RenameEditorDifferentialTest : public SandboxTest {};

TEST_F(RenameEditorDifferentialTest, WholeLineRenamesDeletesAndAppendsMatchTheScripts) {
    for (const std::string& old_domain : kDomains) {
        for (const std::string& input : endings_of(control_lines())) {
            expect_same({sed_substitute(old_domain, "b.test", Anchor::whole)},
                        crelm::qmail::rename_whole_line(old_domain, "b.test"), input);
            expect_same({sed_delete_line(old_domain)}, crelm::qmail::drop_line(old_domain), input);
            expect_same({sed_append_line(old_domain)}, crelm::qmail::append_line(old_domain), input);
        }
    }
}

TEST_F(RenameEditorDifferentialTest, VirtualDomainRenamesMatchTheScripts) {
    for (const std::string& old_domain : kDomains) {
        for (const std::string& input : endings_of(control_lines())) {
            expect_same(sed_virtual_domain(old_domain, "b.test"),
                        crelm::qmail::rename_virtual_domain(old_domain, "b.test"), input);
        }
    }
}

TEST_F(RenameEditorDifferentialTest, RandomAssignTablesRenameAsTheScriptsDid) {
    std::mt19937 random(20240611);
    for (int table = 0; table < 40; ++table) {
        const std::vector<std::string> lines = random_lines(random, 300, assign_line);
        for (const std::string& input : endings_of(lines)) {
            const std::string old_domain = pick(random, kDomains);
            expect_same(sed_assign_domain(old_domain, "renamed.example", kRoot),
                        crelm::qmail::rename_assign_domain(old_domain, "renamed.example", kRoot), input);
        }
    }
}

TEST_F(RenameEditorDifferentialTest, AliasRecordsArePointedAsTheScriptDid) {
    std::mt19937 random(7);
    for (const std::string& old_name : kMailNames) {
        const std::string old_tail = ":popuser:2110:2110:" + kRoot + "/a.test/" + old_name + ":::";
        const std::string new_tail = ":popuser:2110:2110:" + kRoot + "/a.test/n&w\\|" + ":::";
        std::vector<std::string> lines = random_lines(random, 200, assign_line);
        for (const std::string& key : std::vector<std::string>{"=a.test-alias", "=a.test-" + old_name, "=", "=x:y", "+a.test", "", "x="}) {
            lines.push_back(key + old_tail);
            lines.push_back(key + old_tail + "\r");
            lines.push_back(key + old_tail.substr(1));
        }
        for (const std::string& input : endings_of(lines)) {
            expect_same({sed_repoint_records(old_tail, new_tail)}, crelm::qmail::repoint_records(old_tail, new_tail),
                        input);
        }
    }
}

// One address as a ".qmail" line may hold it: a forwarding "&", delivery
// lines, neighbours of every kind on either side, letters in upper case.
std::string address_line(std::mt19937& random) {
    const std::vector<std::string> leads = {"", "&", " ", ",", "x", "|", "<", "\t", ".", "-", "+", "'", "_", "\r"};
    const std::vector<std::string> trails = {"", ".", "-", "x", ">", " ", ",", "\r", std::string(1, '\0'), "_", "+"};
    const std::vector<std::string> domains = {"example.test", "alias.test", "EXAMPLE.Test", "example.test.other",
                                              "xexample.test", "example-test", "Alias.TEST"};
    std::string line = pick(random, {"", "&", "|/usr/bin/forward "});
    const int count = std::uniform_int_distribution<int>(1, 3)(random);
    for (int i = 0; i < count; ++i) {
        std::string name = pick(random, kMailNames);
        for (char& c : name) {
            if (std::uniform_int_distribution<int>(0, 2)(random) == 0 && c >= 'a' && c <= 'z')
                c = static_cast<char>(c - 'a' + 'A');
        }
        line += pick(random, leads) + name + "@" + pick(random, domains) + pick(random, trails);
    }
    return line;
}

TEST_F(RenameEditorDifferentialTest, AddressesInDotQmailAreRenamedAsTheScriptDid) {
    std::mt19937 random(1234);
    const std::vector<std::string> domains = {"example.test", "alias.test"};
    for (const std::string& old_name : kMailNames) {
        for (const std::string& new_name : kMailNames) {
            if (new_name == old_name)
                continue;
            for (const std::string& input : endings_of(random_lines(random, 60, address_line))) {
                expect_same({sed_address_rename(old_name, new_name, domains)},
                            crelm::qmail::rename_addresses(old_name, new_name, domains), input);
            }
        }
    }
}

// Lines longer than a read, and a table larger than one: the pieces of a
// line that two reads cut are put back together.
TEST_F(RenameEditorDifferentialTest, LinesAcrossReadsAreEditedWhole) {
    std::mt19937 random(99);
    std::vector<std::string> lines = random_lines(random, 30000, assign_line);
    lines.insert(lines.begin() + 100, "=other-" + std::string(3 << 20, 'n') + ":::");
    for (const std::string& input : endings_of(lines)) {
        expect_same(sed_assign_domain("a.test", "renamed.example", kRoot),
                    crelm::qmail::rename_assign_domain("a.test", "renamed.example", kRoot), input);
    }
}

}  // namespace
}  // namespace sorvane::test
