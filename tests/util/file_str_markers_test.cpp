// The block copier given the texts that every left-out piece holds: the same
// copy as judging every piece, with only the lines that hold a text judged.
#include "util/file_str_pieces.h"

#include "support/sandbox.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

using crelm::util::copy_kept_pieces;
using crelm::util::PieceCopy;
using sorvane::test::read_file;
using sorvane::test::write_file;

class FileStrMarkersTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        dir_ = sorvane::test::scratch_dir();
    }

    // The copy of content through copy_kept_pieces, with markers or (when
    // none are given) judging every piece; the pieces judged are recorded.
    std::string copied(const std::string& content, const std::function<bool(std::string_view)>& removed,
                       const std::vector<std::string>* markers) {
        write_file(dir_ + "/in", content);
        const int from = ::open((dir_ + "/in").c_str(), O_RDONLY);
        std::FILE* to = std::fopen((dir_ + "/out").c_str(), "w");
        EXPECT_TRUE(from >= 0 && to != nullptr);
        judged_.clear();
        const auto judge = [&](std::string_view piece) {
            judged_.emplace_back(piece);
            return removed(piece);
        };
        const PieceCopy result =
            markers == nullptr ? copy_kept_pieces(from, to, judge) : copy_kept_pieces(from, to, judge, *markers);
        EXPECT_EQ(result, PieceCopy::done);
        EXPECT_EQ(std::fclose(to), 0);
        ::close(from);
        return read_file(dir_ + "/out");
    }

    // Both ways give the same copy; returns it.
    std::string same_both_ways(const std::string& content, const std::function<bool(std::string_view)>& removed,
                               const std::vector<std::string>& markers) {
        const std::string every = copied(content, removed, nullptr);
        const std::string marked = copied(content, removed, &markers);
        EXPECT_TRUE(every == marked) << "every piece judged: " << every.size() << " bytes, marked: " << marked.size();
        return marked;
    }

    std::string dir_;
    std::vector<std::string> judged_;
};

bool contains(std::string_view piece, std::string_view text) { return piece.find(text) != std::string_view::npos; }

// The words that random files are made of; the first four make markers.
const std::vector<std::string> kWords = {"=dom.test-", "info", "+dom.test:", "alias", ":::", "x"};

std::string random_word(std::mt19937& random) { return kWords[random() % 4]; }

// Lines of random words and random lengths (one in fifty longer than a
// piece) until size bytes, and with unterminated a last line without its
// newline.
std::string random_content(std::mt19937& random, std::size_t size, bool unterminated) {
    std::string content;
    while (content.size() < size) {
        const std::size_t length = random() % 50 == 0 ? 3000 + random() % 9000 : random() % 120;
        std::string line;
        while (line.size() < length)
            line += kWords[random() % kWords.size()];
        content += line + "\n";
    }
    if (unterminated)
        content += "=dom.test-info tail without newline";
    return content;
}

TEST_F(FileStrMarkersTest, OnlyTheLinesHoldingAMarkerAreJudged) {
    const std::string content = "=a:1\n=b:2\n+c:3\n=b:4\n.\n";
    const auto removed = [](std::string_view piece) { return piece == "=b:2\n"; };
    EXPECT_EQ(same_both_ways(content, removed, {"=b:2"}), "=a:1\n+c:3\n=b:4\n.\n");
    EXPECT_EQ(judged_, std::vector<std::string>{"=b:2\n"});
}

TEST_F(FileStrMarkersTest, EveryLineHoldingAnyMarkerIsJudgedOnceInOrder) {
    const std::string content = "x1\nab\nx2\ncd\nabcd\nx3\n";
    const auto removed = [](std::string_view piece) { return contains(piece, "ab") || contains(piece, "cd"); };
    EXPECT_EQ(same_both_ways(content, removed, {"cd", "ab"}), "x1\nx2\nx3\n");
    EXPECT_EQ(judged_, (std::vector<std::string>{"ab\n", "cd\n", "abcd\n"}));
}

TEST_F(FileStrMarkersTest, AMarkerInALastLineWithoutNewlineIsJudged) {
    const auto removed = [](std::string_view piece) { return piece == "last"; };
    EXPECT_EQ(same_both_ways("keep\nlast", removed, {"last"}), "keep\n");
    EXPECT_EQ(judged_, std::vector<std::string>{"last"});
}

TEST_F(FileStrMarkersTest, NoMarkerFoundCopiesEverythingAndJudgesNothing) {
    const std::string content = "one\ntwo\nthree";
    EXPECT_EQ(same_both_ways(content, [](std::string_view piece) { return contains(piece, "four"); }, {"four"}),
              content);
    EXPECT_TRUE(judged_.empty());
}

TEST_F(FileStrMarkersTest, ALongLineIsStillJudgedInThePiecesALineReaderSees) {
    // The marker sits in the second 4095-byte piece of a long line.
    const std::string line = std::string(4095, 'a') + std::string(2000, 'b') + "MARK" + std::string(2091, 'b') + "cc\n";
    const auto removed = [](std::string_view piece) { return contains(piece, "MARK"); };
    EXPECT_EQ(same_both_ways(line + "next\n", removed, {"MARK"}), std::string(4095, 'a') + "cc\nnext\n");
    // The line's pieces up to the one that holds the marker.
    ASSERT_EQ(judged_.size(), 2u);
    EXPECT_EQ(judged_[0], std::string(4095, 'a'));
    EXPECT_EQ(judged_[1].substr(2000, 4), "MARK");
}

TEST_F(FileStrMarkersTest, AMarkerSplitBetweenTwoPiecesOfALongLineIsInNeither) {
    const std::string line = std::string(4093, 'a') + "MARK" + std::string(10, 'z') + "\n";
    const auto removed = [](std::string_view piece) { return contains(piece, "MARK"); };
    EXPECT_EQ(same_both_ways(line, removed, {"MARK"}), line);
}

// Seeded random files of several blocks: lines of random lengths (some
// longer than a piece, some without their newline at the end), random
// markers; both ways give the same copy.
TEST_F(FileStrMarkersTest, RandomFilesOfSeveralBlocksCopyAsIfEveryPieceWereJudged) {
    std::mt19937 random(20261125);
    for (int round = 0; round < 6; ++round) {
        const std::string content = random_content(random, 3 * (std::size_t{1} << 20), round % 2 == 1);
        const std::vector<std::string> markers = {random_word(random) + random_word(random), random_word(random)};
        const auto removed = [&](std::string_view piece) {
            return (contains(piece, markers[0]) && piece.size() % 3 == 0) || contains(piece, markers[1] + "x");
        };
        const std::vector<std::string> given = {markers[0], markers[1] + "x"};
        const std::string out = same_both_ways(content, removed, given);
        EXPECT_LT(out.size(), content.size()) << "round " << round;
    }
}

// The pieces of content as a line reader with a 4096-byte buffer sees them,
// each edited by edit: the copy that copy_edited_pieces must make.
std::string edited_piece_by_piece(const std::string& content, const crelm::util::PieceEdit& edit) {
    std::string out;
    std::string replaced;
    for (std::size_t position = 0; position < content.size();) {
        const std::size_t newline = content.find('\n', position);
        const std::size_t line_rest = newline == std::string::npos ? content.size() - position : newline + 1 - position;
        const std::size_t length = std::min<std::size_t>(line_rest, 4095);
        const std::string_view piece(content.data() + position, length);
        const bool starts_line = position == 0 || content[position - 1] == '\n';
        switch (edit(piece, starts_line, replaced)) {
            case crelm::util::LineFate::keep:
                out.append(piece);
                break;
            case crelm::util::LineFate::replace:
                out.append(replaced);
                break;
            case crelm::util::LineFate::drop:
                break;
        }
        position += length;
    }
    return out;
}

// Seeded random files of about 3 and 6 MiB (read in small and in large
// blocks), with lines longer than a piece: an edit that drops some pieces
// holding a marker and replaces others (telling the first piece of a line
// from the later ones) gives the same copy with and without the markers,
// and the same as editing piece by piece.
TEST_F(FileStrMarkersTest, RandomFilesEditedWithOrWithoutMarkersMatchAnEditPieceByPiece) {
    std::mt19937 random(20261126);
    for (int round = 0; round < 4; ++round) {
        const std::size_t size = (round < 2 ? 3 : 6) * (std::size_t{1} << 20);
        const std::string content = random_content(random, size, round % 2 == 1);
        const std::vector<std::string> markers = {random_word(random) + random_word(random),
                                                  random_word(random) + "x"};
        const crelm::util::PieceEdit edit = [&](std::string_view piece, bool starts_line, std::string& replaced) {
            if (contains(piece, markers[1]))
                return crelm::util::LineFate::drop;
            if (!contains(piece, markers[0]))
                return crelm::util::LineFate::keep;
            replaced.assign(starts_line ? "first:" : "later:").append(piece.substr(0, 7));
            if (piece.back() == '\n')
                replaced.push_back('\n');
            return crelm::util::LineFate::replace;
        };
        write_file(dir_ + "/in", content);
        const auto copy = [&](const std::vector<std::string>* given) {
            const int from = ::open((dir_ + "/in").c_str(), O_RDONLY);
            std::FILE* to = std::fopen((dir_ + "/out").c_str(), "w");
            EXPECT_TRUE(from >= 0 && to != nullptr);
            EXPECT_EQ(given == nullptr ? crelm::util::copy_edited_pieces(from, to, edit)
                                       : crelm::util::copy_edited_pieces(from, to, edit, *given),
                      PieceCopy::done);
            EXPECT_EQ(std::fclose(to), 0);
            ::close(from);
            return read_file(dir_ + "/out");
        };
        const std::string expected = edited_piece_by_piece(content, edit);
        EXPECT_NE(expected, content) << "round " << round;
        EXPECT_TRUE(copy(nullptr) == expected) << "round " << round << ", every piece judged";
        EXPECT_TRUE(copy(&markers) == expected) << "round " << round << ", with markers";
    }
}

}  // namespace
