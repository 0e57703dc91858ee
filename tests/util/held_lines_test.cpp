// The line edits of file_str made on a table held in memory leave the very
// lines that the same edits leave in the file, with the same results; the
// file itself is not touched until the table is given up, which writes the
// table's text to it first. The table's log carries a forked editor's
// edits back to the process that forked it.
#include "util/held_lines.h"

#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "support/sandbox.h"
#include "util/file_str.h"
#include "util/line_rewrite.h"

namespace {

using crelm::util::LineFate;
using crelm::util::LineRewrite;
using crelm::util::LineTable;
using sorvane::test::read_file;
using sorvane::test::write_file;

class HeldLinesTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        dir_ = sorvane::test::scratch_dir();
        file_ = dir_ + "/assign";
        held_ = dir_ + "/held";
    }
    void TearDown() override {
        crelm::util::release_held_lines();
        SandboxTest::TearDown();
    }

    // Holds a table of text for held_, whose file holds the same text.
    void hold(const std::string& text) {
        write_file(held_, text);
        std::unique_ptr<LineTable> table = LineTable::from_text(text);
        ASSERT_NE(table, nullptr);
        crelm::util::hold_lines(held_, std::move(table));
    }
    LineTable* table() { return crelm::util::held_lines(held_); }

    std::string dir_;
    std::string file_;
    std::string held_;
};

TEST(LineTableTest, RefusesTextThatIsNotWholeShortLines) {
    EXPECT_EQ(LineTable::from_text("a\nb"), nullptr);
    EXPECT_EQ(LineTable::from_text(std::string(4094, 'x') + "\n"), nullptr);
    EXPECT_NE(LineTable::from_text(std::string(4093, 'x') + "\n"), nullptr);
    ASSERT_NE(LineTable::from_text(""), nullptr);
    EXPECT_EQ(LineTable::from_text("")->text(), "");
    EXPECT_EQ(LineTable::from_text("a\n\nb\n")->text(), "a\n\nb\n");
}

TEST(LineTableTest, EditsPutOnTopDropAndReplace) {
    std::unique_ptr<LineTable> table = LineTable::from_text("a\nb\nc\n");
    LineTable::Edit edit(*table);
    edit.drop(1);
    edit.replace(2, "C\n");
    edit.put_on_top("top\n");
    edit.put_on_top("newest\n");
    ASSERT_TRUE(edit.commit());
    EXPECT_EQ(table->text(), "newest\ntop\na\nC\n");
    LineTable::Edit second(*table);
    second.drop(3);  // "top", the first line put on top
    second.replace(4, "NEWEST\n");
    ASSERT_TRUE(second.commit());
    EXPECT_EQ(table->text(), "NEWEST\na\nC\n");
}

// Runs edit in a forked child, which ends at once; the parent replays.
std::optional<std::size_t> edit_in_child(LineTable& table, const std::function<void(LineTable&)>& edit) {
    if (!table.open_log())
        return std::nullopt;
    const pid_t child = ::fork();
    if (child == 0) {
        edit(table);
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return table.replay_log();
}

TEST(LineTableTest, AForkedEditorsEditsAreReplayedInTheParent) {
    std::unique_ptr<LineTable> table = LineTable::from_text("a\nb\nc\n");
    const std::optional<std::size_t> replayed = edit_in_child(*table, [](LineTable& child) {
        LineTable::Edit first(child);
        first.drop(0);
        first.put_on_top("x\n");
        first.commit();
        LineTable::Edit second(child);
        second.replace(3, "X\n");
        second.commit();
    });
    EXPECT_EQ(replayed, std::optional<std::size_t>(2));
    EXPECT_EQ(table->text(), "X\nb\nc\n");
    // The log is closed: an edit of the parent's own is not logged anywhere.
    LineTable::Edit own(*table);
    own.drop(1);
    EXPECT_TRUE(own.commit());
    EXPECT_EQ(table->text(), "X\nc\n");
}

// The table's log, found among the process's descriptors by its name.
int log_descriptor() {
    for (int fd = 3; fd < 256; ++fd) {
        char target[256] = {};
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        if (::readlink(link.c_str(), target, sizeof target - 1) > 0 &&
            std::string_view(target).starts_with("/memfd:sorvane-held-lines"))
            return fd;
    }
    return -1;
}

TEST(LineTableTest, AnEditorKilledInTheMiddleOfARecordLeavesTheTableAsItWas) {
    std::unique_ptr<LineTable> table = LineTable::from_text("a\nb\n");
    const std::optional<std::size_t> replayed = edit_in_child(*table, [](LineTable& child) {
        LineTable::Edit edit(child);
        edit.put_on_top("kept\n");
        edit.commit();
        // What a kill in the middle of the next record's write leaves: its
        // length and the start of its steps.
        const char cut[] = {40, 0, 0, 0, 'T', 0, 0};
        const int log = log_descriptor();
        if (log < 0 || ::write(log, cut, sizeof cut) != static_cast<ssize_t>(sizeof cut))
            ::_exit(1);
    });
    EXPECT_EQ(replayed, std::optional<std::size_t>(1));
    EXPECT_EQ(table->text(), "kept\na\nb\n");
}

TEST(LineTableTest, GivingUpIsReplayedToo) {
    std::unique_ptr<LineTable> table = LineTable::from_text("a\n");
    EXPECT_EQ(edit_in_child(*table, [](LineTable& child) { child.give_up(); }), std::optional<std::size_t>(1));
    EXPECT_TRUE(table->given_up());
}

TEST_F(HeldLinesTest, EditsGoToTheTableAndLeaveTheFileAsItWas) {
    hold("=a:1\n=b:2\n.\n");
    EXPECT_EQ(file_str(held_, {"=c:3"}, LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(file_str_one(held_, "=a:1", LineAction::remove_exact, LinePosition::anywhere), 0);
    EXPECT_EQ(read_file(held_), "=a:1\n=b:2\n.\n");
    EXPECT_EQ(table()->text(), "=c:3\n=b:2\n.\n");
    EXPECT_EQ(sorvane::test::temporaries_beside(held_), std::vector<std::string>{});
}

TEST_F(HeldLinesTest, AnAppendGivesTheTableUpAfterWritingItToTheFile) {
    hold("=a:1\n.\n");
    EXPECT_EQ(file_str(held_, {"=c:3"}, LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(file_str(held_, {"tail"}, LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(table(), nullptr);
    EXPECT_EQ(read_file(held_), "=c:3\n=a:1\n.\ntail\n");
}

TEST_F(HeldLinesTest, ALineAsLongAsAPieceGivesTheTableUp) {
    hold("=a:1\n");
    const std::string long_line(4094, 'l');
    EXPECT_EQ(file_str(held_, {long_line}, LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(table(), nullptr);
    EXPECT_EQ(read_file(held_), long_line + "\n=a:1\n");
}

TEST_F(HeldLinesTest, ARefusedLineIsRefusedAsForTheFile) {
    hold("=a:1\n");
    EXPECT_EQ(file_str_one(held_, "x\ny", LineAction::add, LinePosition::start), 1);
    EXPECT_EQ(table()->text(), "=a:1\n");
}

// One random edit, made the same way on the file and on the held table.
class RandomEdits {
public:
    explicit RandomEdits(unsigned seed) : random_(seed) {}

    std::string line() {
        static const char* const kLines[] = {"=a:1", "=b:2", "+c:3", "=a-x:1", "", ".", "=A:1", "b:2", "=b:2x"};
        std::string line = kLines[pick(std::size(kLines))];
        if (pick(5) == 0)
            line += "\n";
        return line;
    }
    std::string pattern() {
        static const char* const kPatterns[] = {"=a", ":1", "b", "2\n", "=", "x:1", "."};
        return kPatterns[pick(std::size(kPatterns))];
    }
    std::size_t pick(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_); }

    // The edit on path: its result and, for an edit on top, whether it met
    // an old line.
    std::pair<int, bool> edit(const std::string& path, unsigned kind, const std::vector<std::string>& lines) {
        bool met = false;
        const LineRewrite rewrite{[](std::string_view old, std::string& replaced) {
                                      if (old.find(":2") == std::string_view::npos)
                                          return LineFate::keep;
                                      if (old.starts_with("+"))
                                          return LineFate::drop;
                                      replaced = std::string(old) + "2";
                                      return LineFate::replace;
                                  },
                                  ":2", {}};
        switch (kind) {
        case 0:
            return {file_str(path, lines, LineAction::add, LinePosition::start), false};
        case 1:
            return {file_str(path, lines, LineAction::remove_exact, LinePosition::anywhere), false};
        case 2:
        case 3:
        case 4:
            return {file_str(path, lines, LineAction::remove_pattern, static_cast<LinePosition>(kind - 2)), false};
        case 5: {
            const int result = file_str_on_top(path, lines[0], {lines.begin() + 1, lines.end()}, &met);
            return {result, met};
        }
        default: {
            const int result = file_str_on_top(path, lines[0], {lines.begin() + 1, lines.end()}, &met, &rewrite,
                                               kind == 7 ? ":" : "");
            return {result, met};
        }
        }
    }

private:
    std::mt19937 random_;
};

TEST_F(HeldLinesTest, RandomEditsOfTheTableLeaveWhatTheSameEditsOfTheFileLeave) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomEdits random(seed);
        std::string whole;
        for (std::size_t i = random.pick(6); i > 0; --i)
            whole += random.line() + "\n";
        write_file(file_, whole);
        crelm::util::release_held_lines();
        hold(whole);
        for (int step = 0; step < 30; ++step) {
            const auto kind = static_cast<unsigned>(random.pick(8));
            std::vector<std::string> lines;
            for (std::size_t i = random.pick(3) + 1; i > 0; --i)
                lines.push_back(kind >= 2 && kind <= 4 ? random.pattern() : random.line());
            SCOPED_TRACE("step " + std::to_string(step) + " kind " + std::to_string(kind));
            const auto on_file = random.edit(file_, kind, lines);
            const auto on_table = random.edit(held_, kind, lines);
            EXPECT_EQ(on_table, on_file);
            ASSERT_NE(table(), nullptr);
            ASSERT_EQ(table()->text(), read_file(file_));
        }
        EXPECT_EQ(read_file(held_), whole) << "the held file was not touched";
    }
}

}  // namespace
