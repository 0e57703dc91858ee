// Putting a line at the top once: the old copies out and the line on top in
// one rewrite of the file.
#include "qmail/control_lines.h"

#include <unistd.h>

#include "qmail/control_test_support.h"

namespace sorvane::test {
namespace {

using crelm::qmail::LineOnTop;
using crelm::qmail::put_line_on_top_once;

using ControlLinesTest = ControlFilesTest;

TEST_F(ControlLinesTest, TheLineEndsUpOnTopOnceWithTheOtherLinesInOrder) {
    write_file(kAssignPath, "=a:1\n=b:2\n=a:1\n=a:10\n.\n", 0644);
    EXPECT_EQ(put_line_on_top_once(kAssignPath, "=a:1"), LineOnTop::placed);
    EXPECT_EQ(read_file(kAssignPath), "=a:1\n=b:2\n=a:10\n.\n");
    EXPECT_EQ(put_line_on_top_once(kAssignPath, "=b:2"), LineOnTop::placed);
    EXPECT_EQ(read_file(kAssignPath), "=b:2\n=a:1\n=a:10\n.\n");
    EXPECT_EQ(file_info(kAssignPath).mode, 0644u);
    EXPECT_EQ(temporaries_beside(kAssignPath), std::vector<std::string>{});
}

TEST_F(ControlLinesTest, TheRewriteTellsWhetherTheLineWasThere) {
    write_file(kAssignPath, "=b:2\n=a:10\n.\n", 0644);
    bool was_there = true;
    EXPECT_EQ(put_line_on_top_once(kAssignPath, "=a:1", &was_there), LineOnTop::placed);
    EXPECT_FALSE(was_there);
    EXPECT_EQ(put_line_on_top_once(kAssignPath, "=b:2", &was_there), LineOnTop::placed);
    EXPECT_TRUE(was_there);
    EXPECT_EQ(read_file(kAssignPath), "=b:2\n=a:1\n=a:10\n.\n");
}

TEST_F(ControlLinesTest, AMissingFileIsLeftMissing) {
    ASSERT_EQ(::unlink(kAssignPath), 0);
    EXPECT_EQ(put_line_on_top_once(kAssignPath, "=a:1"), LineOnTop::no_file);
    EXPECT_FALSE(path_exists(kAssignPath));
}

TEST_F(ControlLinesTest, AFileThatCannotBeLockedIsLeftAsItWas) {
    write_file(kAssignPath, "=b:2\n=a:1\n.\n", 0644);
    plant_foreign_lock_directory();
    const StepResult step = run_step([] { return put_line_on_top_once(kAssignPath, "=a:1") == LineOnTop::failed; });
    EXPECT_EQ(step.status, 1);
    EXPECT_NE(step.printed.err.find("Error occurred while locking the file /var/qmail/users/assign"), std::string::npos)
        << step.printed.err;
    EXPECT_EQ(read_file(kAssignPath), "=b:2\n=a:1\n.\n");
}

}  // namespace
}  // namespace sorvane::test
