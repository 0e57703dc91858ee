// The block copier under the line editor: the pieces it judges, across block
// boundaries, and its failures.
#include "util/file_str_pieces.h"

#include "support/sandbox.h"
#include "util/file_str.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

using crelm::util::copy_kept_pieces;
using crelm::util::PieceCopy;
using sorvane::test::read_file;
using sorvane::test::write_file;

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

class FileStrPiecesTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        dir_ = sorvane::test::scratch_dir();
    }

    // Copies the content of a file through copy_kept_pieces into another
    // file, recording every piece judged; returns the copy.
    std::string copied(const std::string& content, const std::function<bool(std::string_view)>& removed) {
        write_file(dir_ + "/in", content);
        const int from = ::open((dir_ + "/in").c_str(), O_RDONLY);
        std::FILE* to = std::fopen((dir_ + "/out").c_str(), "w");
        EXPECT_TRUE(from >= 0 && to != nullptr);
        const auto judge = [&](std::string_view piece) {
            pieces_.emplace_back(piece);
            return removed(piece);
        };
        EXPECT_EQ(copy_kept_pieces(from, to, judge), PieceCopy::done);
        EXPECT_EQ(std::fclose(to), 0);
        ::close(from);
        return read_file(dir_ + "/out");
    }

    std::string dir_;
    std::vector<std::string> pieces_;
};

// Lines of the given length (newline included), numbered, so that each is
// different: "000000xxxx...\n".
std::string numbered_lines(std::size_t count, std::size_t length) {
    std::string content;
    for (std::size_t i = 0; i < count; ++i) {
        std::string number = std::to_string(i);
        content += std::string(6 - number.size(), '0') + number + std::string(length - 7, 'x') + "\n";
    }
    return content;
}

TEST_F(FileStrPiecesTest, EveryLineIsJudgedOnceWithItsNewlineAndTheKeptOnesAreCopied) {
    const std::string out = copied("a\nbb\n\nccc\n", [](std::string_view piece) { return piece == "bb\n"; });
    EXPECT_EQ(out, "a\n\nccc\n");
    EXPECT_EQ(pieces_, (std::vector<std::string>{"a\n", "bb\n", "\n", "ccc\n"}));
}

TEST_F(FileStrPiecesTest, ALastLineWithoutNewlineIsAPieceOfItsOwn) {
    EXPECT_EQ(copied("keep\nlast", [](std::string_view piece) { return piece == "keep\n"; }), "last");
    EXPECT_EQ(pieces_, (std::vector<std::string>{"keep\n", "last"}));
}

TEST_F(FileStrPiecesTest, ALongLineIsJudgedIn4095BytePiecesAsALineReaderWouldSeeIt) {
    const std::string line = std::string(4095, 'a') + std::string(4095, 'b') + "cc\n";
    const std::string out = copied(line + "next\n", [](std::string_view piece) { return piece[0] == 'b'; });
    EXPECT_EQ(out, std::string(4095, 'a') + "cc\nnext\n");
    EXPECT_EQ(pieces_, (std::vector<std::string>{std::string(4095, 'a'), std::string(4095, 'b'), "cc\n", "next\n"}));
}

TEST_F(FileStrPiecesTest, ALineOfExactly4095BytesAndItsNewlineAreTwoPieces) {
    const std::string line(4095, 'z');
    EXPECT_EQ(copied(line + "\n", [](std::string_view) { return false; }), line + "\n");
    EXPECT_EQ(pieces_, (std::vector<std::string>{line, "\n"}));
}

TEST_F(FileStrPiecesTest, LinesAcrossBlockBoundariesAreWholeAndRemovedOnesGone) {
    // 3 MB of 84-byte lines: block boundaries fall inside lines.
    const std::size_t count = 3 * kMegabyte / 84;
    const std::string content = numbered_lines(count, 84);
    const std::size_t straddling = kMegabyte / 84;  // the line that holds the first block's last byte
    const auto removed = [&](std::string_view piece) {
        return piece.size() != 84 || std::stoul(std::string(piece.substr(0, 6))) % 1000 == straddling % 1000;
    };
    const std::string out = copied(content, removed);
    std::string expected;
    for (std::size_t i = 0; i < count; ++i)
        if (i % 1000 != straddling % 1000)
            expected += content.substr(i * 84, 84);
    EXPECT_EQ(out.size(), expected.size());
    EXPECT_TRUE(out == expected);
    EXPECT_EQ(pieces_.size(), count);
}

TEST_F(FileStrPiecesTest, WithoutAFilterTheFileIsCopiedByteForByteNulBytesIncluded) {
    std::string content = numbered_lines(30000, 80);
    content[100] = '\0';
    content += std::string("tail\0with nul", 13);
    write_file(dir_ + "/in", content);
    const int from = ::open((dir_ + "/in").c_str(), O_RDONLY);
    std::FILE* to = std::fopen((dir_ + "/out").c_str(), "w");
    ASSERT_TRUE(from >= 0 && to != nullptr);
    EXPECT_EQ(copy_kept_pieces(from, to), PieceCopy::done);
    EXPECT_EQ(std::fclose(to), 0);
    ::close(from);
    EXPECT_TRUE(read_file(dir_ + "/out") == content);
}

TEST_F(FileStrPiecesTest, AnEmptyFileCopiesNothingAndJudgesNothing) {
    EXPECT_EQ(copied("", [](std::string_view) { return true; }), "");
    EXPECT_TRUE(pieces_.empty());
}

TEST_F(FileStrPiecesTest, AnUnreadableDescriptorIsAReadFailureWithErrno) {
    const int directory = ::open(dir_.c_str(), O_RDONLY | O_DIRECTORY);
    std::FILE* to = std::fopen("/dev/null", "w");
    ASSERT_TRUE(directory >= 0 && to != nullptr);
    errno = 0;
    EXPECT_EQ(copy_kept_pieces(directory, to), PieceCopy::read_failed);
    EXPECT_EQ(errno, EISDIR);
    std::fclose(to);
    ::close(directory);
}

TEST_F(FileStrPiecesTest, AFullDeviceIsAWriteFailureWithErrno) {
    write_file(dir_ + "/in", numbered_lines(20000, 80));
    const int from = ::open((dir_ + "/in").c_str(), O_RDONLY);
    std::FILE* to = std::fopen("/dev/full", "w");
    ASSERT_TRUE(from >= 0 && to != nullptr);
    errno = 0;
    EXPECT_EQ(copy_kept_pieces(from, to, [](std::string_view piece) { return piece[5] == '7'; }),
              PieceCopy::write_failed);
    EXPECT_EQ(errno, ENOSPC);
    std::fclose(to);
    ::close(from);
}

// Through file_str itself: an edit of a file of several blocks leaves exactly
// the other lines, in order.
TEST_F(FileStrPiecesTest, TheLineEditorRemovesALineFromAFileOfSeveralBlocks) {
    const std::string path = dir_ + "/assign";
    const std::string content = numbered_lines(40000, 84);
    write_file(path, content);
    const std::string victim = content.substr(12483 * 84, 83);  // the line holding the first block's end
    ASSERT_EQ(file_str_one(path, victim, LineAction::remove_exact, LinePosition::start), 0);
    EXPECT_TRUE(read_file(path) == content.substr(0, 12483 * 84) + content.substr(12484 * 84));
    ASSERT_EQ(file_str_one(path, "=top:line", LineAction::add, LinePosition::start), 0);
    EXPECT_TRUE(read_file(path) == "=top:line\n" + content.substr(0, 12483 * 84) + content.substr(12484 * 84));
}

}  // namespace
