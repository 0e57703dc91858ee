// A file's stamp: the same while nothing replaces or changes it.
#include "util/file_stamp.h"

#include "support/sandbox.h"
#include "util/file_str.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

using crelm::util::FileStamp;
using crelm::util::same_stamp;
using crelm::util::stamp_of;
using sorvane::test::write_file;

class FileStampTest : public sorvane::test::SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        path_ = sorvane::test::scratch_dir() + "/assign";
        write_file(path_, "=a:1\n.\n", 0644);
    }
    std::string path_;
};

TEST_F(FileStampTest, AnUntouchedFileKeepsItsStamp) {
    const FileStamp first = stamp_of(path_);
    ASSERT_TRUE(first.known);
    EXPECT_TRUE(same_stamp(first, stamp_of(path_)));
}

TEST_F(FileStampTest, AMissingFileHasNoStampAndMatchesNothing) {
    const FileStamp missing = stamp_of(path_ + ".none");
    EXPECT_FALSE(missing.known);
    EXPECT_FALSE(same_stamp(missing, missing));
}

TEST_F(FileStampTest, AReplacedAnAppendedAndAChangedFileEachGetANewStamp) {
    FileStamp before = stamp_of(path_);
    ASSERT_EQ(file_str_one(path_, "=b:2", LineAction::add, LinePosition::start), 0);
    EXPECT_FALSE(same_stamp(before, stamp_of(path_)));
    before = stamp_of(path_);
    ASSERT_EQ(file_str_one(path_, "=c:3", LineAction::add, LinePosition::end), 0);
    EXPECT_FALSE(same_stamp(before, stamp_of(path_)));
    before = stamp_of(path_);
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
    EXPECT_FALSE(same_stamp(before, stamp_of(path_)));
}

TEST_F(FileStampTest, TheLineEditorGivesTheStampOfWhatItLeft) {
    FileStamp left;
    ASSERT_EQ(file_str_stamped(path_, {"=a"}, LineAction::remove_pattern, LinePosition::anywhere, left), 0);
    EXPECT_TRUE(same_stamp(left, stamp_of(path_)));
    EXPECT_EQ(sorvane::test::read_file(path_), ".\n");
}

TEST_F(FileStampTest, AFailedEditGivesNoStamp) {
    FileStamp left = stamp_of(path_);
    EXPECT_EQ(file_str_stamped(path_ + ".none", {"x"}, LineAction::remove_exact, LinePosition::anywhere, left), 1);
    EXPECT_FALSE(left.known);
}

}  // namespace
