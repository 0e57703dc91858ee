// Reading files without being led elsewhere or made to wait.
#include "audit/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/sandbox.h"

namespace crelm::audit {
namespace {

using sorvane::test::write_file;

class TextFileTest : public sorvane::test::SandboxTest {};

TEST_F(TextFileTest, ARegularFileIsReadWhole) {
    write_file("/tmp/plain", "one\ntwo\n");
    const TextFile file = read_text_file("/tmp/plain");
    EXPECT_EQ(file.state, FileState::present);
    EXPECT_EQ(file.text, "one\ntwo\n");
    EXPECT_EQ(text_lines(file.text), (std::vector<std::string_view>{"one", "two"}));
    EXPECT_EQ(text_lines("last"), (std::vector<std::string_view>{"last"}));
}

TEST_F(TextFileTest, ALinkIsNotFollowed) {
    write_file("/tmp/target", "secret\n");
    ASSERT_EQ(symlink("/tmp/target", "/tmp/link"), 0);
    const TextFile file = read_text_file("/tmp/link");
    EXPECT_EQ(file.state, FileState::link);
    EXPECT_EQ(file.text, "");
    EXPECT_EQ(file_state_text(file), "a symbolic link");
}

TEST_F(TextFileTest, AFifoIsNeitherOpenedNorWaitedOn) {
    ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
    const TextFile file = read_text_file("/tmp/fifo");
    EXPECT_EQ(file.state, FileState::not_regular);
    EXPECT_EQ(file_state_text(file), "not a regular file");
}

TEST_F(TextFileTest, MissingTooLargeAndUnreadable) {
    EXPECT_EQ(read_text_file("/tmp/none").state, FileState::missing);
    EXPECT_EQ(read_text_file("/tmp/none/deeper").state, FileState::missing);
    write_file("/tmp/big", std::string(100, 'x'));
    EXPECT_EQ(read_text_file("/tmp/big", 99).state, FileState::too_large);
    EXPECT_EQ(read_text_file("/tmp/big", 100).state, FileState::present);
    write_file("/tmp/file", "x");
    const TextFile under_a_file = read_text_file("/tmp/file/x");
    EXPECT_EQ(under_a_file.state, FileState::unreadable);
    EXPECT_EQ(file_state_text(under_a_file), "unreadable: Not a directory");
}

}  // namespace
}  // namespace crelm::audit
