#include "util/file_str.h"

#include "printed.h"
#include "runtime/md5_hex.h"
#include "support/sandbox.h"
#include "util/file_lock.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

using sorvane::test::expect_reported;
using sorvane::test::file_info;
using sorvane::test::list_tree;
using sorvane::test::path_exists;
using sorvane::test::printed_by;
using sorvane::test::read_file;
using sorvane::test::with_system_error;
using sorvane::test::write_file;

class FileStrTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        umask(022);
        dir_ = sorvane::test::scratch_dir();
        path_ = dir_ + "/assign";
    }
    // Nothing but the edited file (and what the test put there) in the directory.
    void expect_no_temporary_file() { EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{}); }

    std::string dir_;
    std::string path_;
};

TEST_F(FileStrTest, RemovingFromAMissingFileGivesOneAndLeavesNoFile) {
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::remove_exact, LinePosition::start), 1); });
    EXPECT_EQ(printed.out, "");
    EXPECT_FALSE(path_exists(path_));
    expect_no_temporary_file();
}

TEST_F(FileStrTest, AddingToAMissingFileCreatesItWithTheStreamDefaultMode) {
    EXPECT_EQ(file_str_one(path_, "example.com", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "example.com\n");
    EXPECT_EQ(file_info(path_).mode, 0644U);
}

TEST_F(FileStrTest, AddingAtTheTopOfAMissingFileCreatesIt) {
    EXPECT_EQ(file_str(path_, {"+a:1\n", "+b:2"}, LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "+a:1\n+b:2\n");
    EXPECT_EQ(file_info(path_).mode, 0644U);
    expect_no_temporary_file();
}

TEST_F(FileStrTest, LinesWithoutNewlineAreWrittenWithOneAndOthersAreNotDoubled) {
    write_file(path_, "old\n");
    EXPECT_EQ(file_str(path_, {"one", "two\n"}, LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "old\none\ntwo\n");
}

TEST_F(FileStrTest, AddingAtTheTopPutsTheLinesBeforeTheOldContents) {
    write_file(path_, "=x:1\n.\n");
    EXPECT_EQ(file_str_one(path_, "=new:2", LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=new:2\n=x:1\n.\n");
    expect_no_temporary_file();
}

TEST_F(FileStrTest, RemovingExactLinesComparesThemWithoutTheirNewline) {
    write_file(path_, "a\nab\nb\na\nc");
    EXPECT_EQ(file_str(path_, {"a", "c\n"}, LineAction::remove_exact, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "ab\nb\n");
    expect_no_temporary_file();
}

TEST_F(FileStrTest, RemovingByPatternAtTheStart) {
    write_file(path_, "=dom-a:x\n+dom-a-:y\n=other:dom-a\n");
    EXPECT_EQ(file_str_one(path_, "=dom-a", LineAction::remove_pattern, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "+dom-a-:y\n=other:dom-a\n");
}

TEST_F(FileStrTest, RemovingByPatternAtTheEndIgnoresTheNewline) {
    write_file(path_, "x:example.com\nexample.com:y\nz:example.com");
    EXPECT_EQ(file_str_one(path_, "example.com", LineAction::remove_pattern, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "example.com:y\n");
}

TEST_F(FileStrTest, RemovingByPatternAnywhere) {
    write_file(path_, "=a:/var/qmail/mailnames/d.com/x:\n=b:/var/qmail/mailnames/e.com/y:\n.\n");
    EXPECT_EQ(file_str_one(path_, "/var/qmail/mailnames/d.com/", LineAction::remove_pattern, LinePosition::anywhere),
              0);
    EXPECT_EQ(read_file(path_), "=b:/var/qmail/mailnames/e.com/y:\n.\n");
}

TEST_F(FileStrTest, RemovingByPatternFromAMissingFileFailsToOpenIt) {
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::remove_pattern, LinePosition::anywhere), 1); });
    expect_reported(printed,
                    with_system_error("Unable to open file " + path_ + ": No such file or directory\n", ENOENT));
    EXPECT_FALSE(path_exists(path_));
    expect_no_temporary_file();
}

TEST_F(FileStrTest, AnEditedFileKeepsItsOwnerGroupAndMode) {
    write_file(path_, "| true\n./Maildir/\n", 0600);
    ASSERT_EQ(chown(path_.c_str(), sorvane::test::popuser_uid(), sorvane::test::nofiles_gid()), 0);
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    EXPECT_EQ(file_str_one(path_, "./Maildir/", LineAction::remove_exact, LinePosition::start), 0);
    EXPECT_EQ(file_str_one(path_, "top", LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(file_str_one(path_, "end", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "top\n| true\nend\n");
    const auto info = file_info(path_);
    EXPECT_EQ(info.uid, sorvane::test::popuser_uid());
    EXPECT_EQ(info.gid, sorvane::test::nofiles_gid());
    EXPECT_EQ(info.mode, 0640U);
}

TEST_F(FileStrTest, LinesLongerThanTheLineBufferAreCopiedWhole) {
    const std::string long_line(6000, 'q');
    write_file(path_, long_line + "\ndrop\n");
    EXPECT_EQ(file_str_one(path_, "drop", LineAction::remove_exact, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), long_line + "\n");
}

TEST_F(FileStrTest, ARefusedLockDirectoryFailsTheEditAndLeavesTheFile) {
    write_file(path_, "keep\n");
    sorvane::test::plant_foreign_lock_directory();
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::add, LinePosition::end), 1); });
    expect_reported(printed, with_system_error("Lock directory /run/sorvane refused: it is not owned by root\n", EACCES) +
                                 with_system_error(
                                     "Error occurred while locking the file " + path_ + ": Permission denied\n", EACCES));
    EXPECT_EQ(read_file(path_), "keep\n");
    EXPECT_TRUE(sorvane::test::list_tree("/run/sorvane").empty());
}

TEST_F(FileStrTest, AFileThatCannotBeExaminedStaysLocked) {
    write_file(dir_ + "/plain", "");
    const std::string below_file = dir_ + "/plain/assign";
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(below_file, "x", LineAction::add, LinePosition::end), 1); });
    expect_reported(printed,
                    with_system_error("file_str: Unable to stat file " + below_file + ": Not a directory\n", ENOTDIR));
    EXPECT_EQ(try_lock_file(below_file, LockPlace::lock_directory).descriptor(), 0);
}

TEST_F(FileStrTest, ALinkAtThePathIsRefusedAndItsTargetUntouched) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", path_.c_str()), 0);
    for (const LineAction action : {LineAction::add, LineAction::remove_exact, LineAction::remove_pattern}) {
        for (const LinePosition position : {LinePosition::start, LinePosition::end}) {
            const auto printed = printed_by([&] { EXPECT_EQ(file_str_one(path_, "root", action, position), 1); });
            expect_reported(
                printed,
                with_system_error("Unable to open file " + path_ + ": Too many levels of symbolic links\n", ELOOP));
        }
    }
    EXPECT_EQ(read_file("/etc/passwd"), before);
    EXPECT_EQ(file_info(path_).type, 'l');
    expect_no_temporary_file();
}

TEST_F(FileStrTest, ALinkPlantedAtTheTemporaryNameIsReplacedNotFollowed) {
    const std::string before = read_file("/etc/passwd");
    write_file(path_, "a\nb\n");
    ASSERT_EQ(symlink("/etc/passwd", (path_ + ".tmp").c_str()), 0);
    EXPECT_EQ(file_str_one(path_, "a", LineAction::remove_exact, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "b\n");
    EXPECT_EQ(read_file("/etc/passwd"), before);
    expect_no_temporary_file();
}

TEST_F(FileStrTest, AFailedEditLeavesNoTemporaryFileBehind) {
    // A directory at the path opens but cannot be read line by line.
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
    const auto removing =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::remove_exact, LinePosition::start), 1); });
    expect_reported(removing,
                    with_system_error("Unable to read line from file: " + path_ + ": Is a directory\n", EISDIR));
    const auto adding =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::add, LinePosition::start), 1); });
    expect_reported(adding,
                    with_system_error("Unable to read line from file: " + path_ + ": Is a directory\n", EISDIR));
    expect_no_temporary_file();
    EXPECT_EQ(file_info(path_).type, 'd');
    EXPECT_EQ(list_tree(path_), std::vector<std::string>{});
}

TEST_F(FileStrTest, AppendingToSomethingThatIsNoFileIsReported) {
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "x", LineAction::add, LinePosition::end), 1); });
    expect_reported(printed, with_system_error("Unable to open file " + path_ + ": Is a directory\n", EISDIR));
}

}  // namespace

#include <sys/mount.h>

namespace {

// A file that is a mount point cannot be replaced by rename.
TEST_F(FileStrTest, AFailedRenameIsReportedAndLeavesNoTemporaryFile) {
    write_file(path_, "a\nb\n");
    write_file("/tmp/pinned", "a\nb\n");
    ASSERT_EQ(mount("/tmp/pinned", path_.c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto removing =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "a", LineAction::remove_exact, LinePosition::start), 1); });
    expect_reported(removing,
                    with_system_error("Error while rename file " + path_ + ": Device or resource busy\n", EBUSY));
    const auto adding =
        printed_by([&] { EXPECT_EQ(file_str_one(path_, "c", LineAction::add, LinePosition::start), 1); });
    expect_reported(adding, with_system_error("Unable to rename file " + path_ + ": Device or resource busy\n", EBUSY));
    expect_no_temporary_file();
    EXPECT_EQ(read_file(path_), "a\nb\n");
    umount2(path_.c_str(), MNT_DETACH);
}

}  // namespace

namespace {

// A file whose last line has no newline: appending must not glue the new
// line onto it ("x.testa.test"), so a newline goes first.
TEST_F(FileStrTest, AppendingToAFileWithoutAFinalNewlineEndsItsLastLineFirst) {
    write_file(path_, "localhost\nx.test");
    EXPECT_EQ(file_str_one(path_, "a.test", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "localhost\nx.test\na.test\n");
    EXPECT_EQ(file_str_one(path_, "b.test", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "localhost\nx.test\na.test\nb.test\n");
}

TEST_F(FileStrTest, AppendingToAnEmptyFileAddsNoBlankLine) {
    write_file(path_, "");
    EXPECT_EQ(file_str_one(path_, "a.test", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "a.test\n");
}

TEST_F(FileStrTest, AddingAtTheTopOfAFileWithoutAFinalNewlineKeepsItsLines) {
    write_file(path_, "=a:b\n.");
    EXPECT_EQ(file_str_one(path_, "=c:d", LineAction::add, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=c:d\n=a:b\n.");
}

// A line with a line break inside, a carriage return or a NUL would be read
// as two lines, or differently by each reader; nothing is written.
TEST_F(FileStrTest, LinesHoldingALineBreakCarriageReturnOrNulAreRefused) {
    write_file(path_, "keep\n");
    for (const std::string& line :
         {std::string("a.test\nb.test"), std::string("a.test\r"), std::string("a.te\0st", 7), std::string("\n\n")}) {
        for (const LineAction action : {LineAction::add, LineAction::remove_exact, LineAction::remove_pattern}) {
            const auto printed = printed_by([&] { EXPECT_EQ(file_str_one(path_, line, action, LinePosition::end), 1); });
            expect_reported(printed, with_system_error("Refused to edit file " + path_ +
                                                           ": a line holds a newline, carriage return or NUL\n",
                                                       EINVAL));
        }
    }
    EXPECT_EQ(read_file(path_), "keep\n");
    expect_no_temporary_file();
}

TEST_F(FileStrTest, AnEmptyPatternIsRefusedInsteadOfRemovingEveryLine) {
    write_file(path_, "one\ntwo\n");
    const auto printed =
        printed_by([&] { EXPECT_EQ(file_str(path_, {"two", ""}, LineAction::remove_pattern, LinePosition::anywhere), 1); });
    expect_reported(printed,
                    with_system_error("Refused to edit file " + path_ + ": an empty pattern matches every line\n", EINVAL));
    EXPECT_EQ(read_file(path_), "one\ntwo\n");
}

TEST_F(FileStrTest, ALineEndingInOneNewlineIsStillAccepted) {
    write_file(path_, "one\n");
    EXPECT_EQ(file_str_one(path_, "two\n", LineAction::add, LinePosition::end), 0);
    EXPECT_EQ(file_str_one(path_, "one\n", LineAction::remove_exact, LinePosition::end), 0);
    EXPECT_EQ(read_file(path_), "two\n");
}

// Copies that killed edits left beside the file ("<name>.tmp" of older runs
// and "<name>.tmp.XXXXXX") go with the next edit, which holds the file's
// lock; look-alike names of other files stay.
TEST_F(FileStrTest, TemporaryFilesOfKilledEditsAreRemovedByTheNextEdit) {
    write_file(path_, "one\n");
    for (const std::string name : {"assign.tmp", "assign.tmp.AbC123", "assign.tmp.zzzzzz"})
        write_file(dir_ + "/" + name, "stale\n");
    for (const std::string name : {"assign.tmp.toolong1", "assign.tmpX", "other.tmp.AbC123", "assign.tmp.ab"})
        write_file(dir_ + "/" + name, "kept\n");
    EXPECT_EQ(file_str_one(path_, "one", LineAction::remove_exact, LinePosition::end), 0);
    EXPECT_EQ(list_tree(dir_), (std::vector<std::string>{"assign", "assign.tmp.ab", "assign.tmp.toolong1",
                                                         "assign.tmpX", "other.tmp.AbC123"}));
}

}  // namespace

namespace {

TEST_F(FileStrTest, AddingOnceAtTheTopTakesTheOldCopiesOutInTheSameRewrite) {
    write_file(path_, "=x:1\n=new:2\n=new:22\n=new:2\n.\n", 0640);
    EXPECT_EQ(file_str_one(path_, "=new:2", LineAction::add_once_at_top, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=new:2\n=x:1\n=new:22\n.\n");
    EXPECT_EQ(file_info(path_).mode, 0640U);
    expect_no_temporary_file();
}

TEST_F(FileStrTest, AddingOnceAtTheTopOfAFileWithoutItIsAddingAtTheTop) {
    write_file(path_, "=x:1\nlast without newline");
    EXPECT_EQ(file_str_one(path_, "=new:2", LineAction::add_once_at_top, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=new:2\n=x:1\nlast without newline");
}

TEST_F(FileStrTest, AddingOnceAtTheTopTakesOutALastCopyWithoutNewline) {
    write_file(path_, "=x:1\n=new:2");
    EXPECT_EQ(file_str_one(path_, "=new:2", LineAction::add_once_at_top, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=new:2\n=x:1\n");
}

TEST_F(FileStrTest, AddingOnceAtTheTopOfAMissingFileCreatesIt) {
    EXPECT_EQ(file_str_one(path_, "=new:2", LineAction::add_once_at_top, LinePosition::start), 0);
    EXPECT_EQ(read_file(path_), "=new:2\n");
}

TEST_F(FileStrTest, AddingOnceAtTheTopRefusesALineWithANewlineInside) {
    write_file(path_, "=x:1\n");
    const auto printed = printed_by(
        [&] { EXPECT_EQ(file_str_one(path_, "=a\n=b", LineAction::add_once_at_top, LinePosition::start), 1); });
    EXPECT_NE(printed.err.find("Refused to edit file"), std::string::npos) << printed.err;
    EXPECT_EQ(read_file(path_), "=x:1\n");
}

// A line ending in ":old" gets ":new" instead, its key kept.
crelm::util::LineRewrite old_to_new() {
    return crelm::util::LineRewrite{[](std::string_view line, std::string& replaced) {
                                        if (!line.ends_with(":old"))
                                            return crelm::util::LineFate::keep;
                                        replaced.assign(line.substr(0, line.size() - 4)).append(":new");
                                        return crelm::util::LineFate::replace;
                                    },
                                    ":old",
                                    {}};
}

TEST_F(FileStrTest, OnTopWithARewriteChangesTheOtherOldLinesInTheSamePass) {
    write_file(path_, "=a:old\n=b:x\n=c:old\n=d:old:kept\n.\n=e:old", 0640);
    const crelm::util::LineRewrite rewrite = old_to_new();
    bool met = false;
    EXPECT_EQ(file_str_on_top(path_, "=n:new", {"=a:old"}, &met, &rewrite), 0);
    EXPECT_EQ(read_file(path_), "=n:new\n=b:x\n=c:new\n=d:old:kept\n.\n=e:new");
    EXPECT_TRUE(met);
    EXPECT_EQ(file_info(path_).mode, 0640U);
    expect_no_temporary_file();
}

// A line left out is not rewritten: a copy of the new line that the rewrite
// would make out of an old one stays, as it would after the two edits one
// after the other.
TEST_F(FileStrTest, OnTopWithARewriteLeavesOutFirstAndRewritesWhatStays) {
    write_file(path_, "=n:old\n=n:new\n=m:old\n.\n");
    const crelm::util::LineRewrite rewrite = old_to_new();
    bool met = false;
    EXPECT_EQ(file_str_on_top(path_, "=n:new", {}, &met, &rewrite), 0);
    EXPECT_EQ(read_file(path_), "=n:new\n=n:new\n=m:new\n.\n");
    EXPECT_TRUE(met);
}

// Lines are judged 4095 bytes at a time: a longer line is never rewritten,
// not even by the piece that ends it.
TEST_F(FileStrTest, OnTopWithARewriteKeepsALineOfAPieceOrMoreAsItIs) {
    const std::string longest_rewritten = "=" + std::string(4089, 'k') + ":old";
    const std::string too_long = "=" + std::string(4090, 'k') + ":old";
    const std::string ending_piece = std::string(4095, 'k') + "=z:old";
    write_file(path_, longest_rewritten + "\n" + too_long + "\n" + ending_piece + "\n.\n" + too_long);
    const crelm::util::LineRewrite rewrite = old_to_new();
    EXPECT_EQ(file_str_on_top(path_, "=n:new", {}, nullptr, &rewrite), 0);
    EXPECT_EQ(read_file(path_), "=n:new\n=" + std::string(4089, 'k') + ":new\n" + too_long + "\n" + ending_piece +
                                    "\n.\n" + too_long);
}

TEST_F(FileStrTest, OnTopWithARewriteWithoutNeedleJudgesEveryLine) {
    write_file(path_, "=a:old\n=b:x\n.\n");
    crelm::util::LineRewrite rewrite = old_to_new();
    rewrite.needle.clear();
    bool met = true;
    EXPECT_EQ(file_str_on_top(path_, "=n:new", {}, &met, &rewrite), 0);
    EXPECT_EQ(read_file(path_), "=n:new\n=a:new\n=b:x\n.\n");
    EXPECT_FALSE(met);
}

}  // namespace

namespace {

// A text that every given line holds is searched for in their stead: the
// lines taken out are the same.
TEST_F(FileStrTest, ATextHeldByEveryGivenLineFindsTheSameLines) {
    write_file(path_, "=d-a:/m/d/a:::\n=d-b:/m/d/a:::\n=e-a:/m/e/a:::\n=d-a:/m/d/a:::x\n.\n");
    EXPECT_EQ(file_str(path_, {"=d-a:/m/d/a:::", "=d-b:/m/d/a:::"}, LineAction::remove_exact, LinePosition::anywhere,
                       "/d/a:::"),
              0);
    EXPECT_EQ(read_file(path_), "=e-a:/m/e/a:::\n=d-a:/m/d/a:::x\n.\n");
}

// A text that some given line does not hold could hide that line's copies:
// it is not used.
TEST_F(FileStrTest, ATextNotHeldByEveryGivenLineIsNotUsed) {
    write_file(path_, "=d-a:/m/d/a:::\n+d:/m/d:::\n=e-a:/m/e/a:::\n.\n");
    EXPECT_EQ(file_str(path_, {"/m/d/", "+d:/m/d:::"}, LineAction::remove_pattern, LinePosition::anywhere, "/m/d/"),
              0);
    EXPECT_EQ(read_file(path_), "=e-a:/m/e/a:::\n.\n");
    write_file(path_, "=n:old\n=a:old\n=b:x\n.\n");
    const crelm::util::LineRewrite rewrite = old_to_new();
    EXPECT_EQ(file_str_on_top(path_, "=n:new", {"=n:old"}, nullptr, &rewrite, "=n:"), 0);
    EXPECT_EQ(read_file(path_), "=n:new\n=a:new\n=b:x\n.\n");
}

}  // namespace
