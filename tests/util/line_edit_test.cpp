#include "util/line_edit.h"

#include "util_test_support.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorvane::test {
namespace {

using crelm::util::LineFate;
using crelm::util::LineRewrite;

// Each occurrence of from in a line becomes to.
LineRewrite replacing(std::string from, std::string to) {
    return LineRewrite{[from, to](std::string_view line, std::string& replaced) {
                           std::string text(line);
                           for (std::size_t at = text.find(from); at != std::string::npos;
                                at = text.find(from, at + to.size()))
                               text.replace(at, from.size(), to);
                           if (text == line)
                               return LineFate::keep;
                           replaced = std::move(text);
                           return LineFate::replace;
                       },
                       from,
                       {}};
}

class LineEditTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        path_ = "/var/qmail/control/virtualdomains";
        write_file(path_, "old.example:old.example\nother:other\n", 0640);
        chown(path_.c_str(), popuser_uid(), popuser_gid());
    }
    std::string path_;
};

TEST_F(LineEditTest, SubstitutionReplacesTheFileAndKeepsItsAttributes) {
    EXPECT_EQ(edit_lines_locked(path_, replacing("old.example:old", "new.example:old")), 0);
    EXPECT_EQ(read_file(path_), "new.example:old.example\nother:other\n");
    const auto info = file_info(path_);
    EXPECT_EQ(info.mode, 0640U);
    EXPECT_EQ(info.uid, popuser_uid());
    EXPECT_EQ(info.gid, popuser_gid());
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

// Not even a "/bin/sed" that fails is run: the edit is this program's own.
TEST_F(LineEditTest, NoOtherProgramIsRun) {
    install_fake("/bin/sed");
    set_fake_status("sed", 1);
    EXPECT_EQ(edit_lines_locked(path_, replacing("other", "else")), 0);
    EXPECT_EQ(fake_calls("sed"), std::vector<std::string>{});
    EXPECT_EQ(read_file(path_), "old.example:old.example\nelse:else\n");
    EXPECT_EQ(file_info(path_).mode, 0640U);
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

// Lines go, lines come at the end, and the bytes after the last newline
// stay a last line without one, as long as nothing comes after them.
TEST_F(LineEditTest, LinesAreDroppedAndAppendedAndALastLineKeepsLackingItsNewline) {
    write_file(path_, "keep\ndrop\nlast");
    const LineRewrite rewrite{[](std::string_view line, std::string&) {
                                  return line == "drop" ? LineFate::drop : LineFate::keep;
                              },
                              "",
                              {"added", "more"}};
    EXPECT_EQ(edit_lines_locked(path_, rewrite), 0);
    EXPECT_EQ(read_file(path_), "keep\nlast\nadded\nmore\n");
    write_file(path_, "keep\nlast");
    EXPECT_EQ(edit_lines_locked(path_, replacing("last", "final")), 0);
    EXPECT_EQ(read_file(path_), "keep\nfinal");
    write_file(path_, "");
    EXPECT_EQ(edit_lines_locked(path_, rewrite), 0);
    EXPECT_EQ(read_file(path_), "");
}

// A directory at the path opens but cannot be read.
TEST_F(LineEditTest, AFileThatCannotBeReadIsLeftAsItWas) {
    const std::string dir = "/var/qmail/control/adir";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(dir, replacing("a", "b")), -1); });
    expect_reported(printed, with_system_error("ERROR: Unable to read file " + dir + ": Is a directory", EISDIR));
    EXPECT_EQ(file_info(dir).type, 'd');
    EXPECT_EQ(sorvane::test::temporaries_beside(dir), std::vector<std::string>{});
}

TEST_F(LineEditTest, MissingFileCannotHaveItsAttributesSaved) {
    const std::string missing = "/var/qmail/control/missing";
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(missing, replacing("a", "b")), -1); });
    expect_reported(printed,
                    with_system_error(
                        "ERROR: Unable to save file '" + missing + "' attributes : No such file or directory", ENOENT));
    EXPECT_EQ(sorvane::test::temporaries_beside(missing), std::vector<std::string>{});
}

TEST_F(LineEditTest, ALinkAtThePathIsNotReadThrough) {
    const std::string link = "/var/qmail/control/locals";
    ASSERT_EQ(symlink("/etc/passwd", link.c_str()), 0);
    const std::string before = read_file("/etc/passwd");
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(link, replacing("root", "toor")), -1); });
    expect_reported(printed, with_system_error("ERROR: Unable to open file " + link +
                                                   " for reading: Too many levels of symbolic links",
                                               ELOOP));
    EXPECT_EQ(read_file("/etc/passwd"), before);
    EXPECT_EQ(file_info(link).type, 'l');
}

TEST_F(LineEditTest, ALinkPlantedAtAnOldTemporaryNameIsRemovedNotFollowed) {
    const std::string before = read_file("/etc/passwd");
    ASSERT_EQ(symlink("/etc/passwd", (path_ + ".tmp").c_str()), 0);
    ASSERT_EQ(symlink("/etc/passwd", (path_ + ".tmp.AbC123").c_str()), 0);
    EXPECT_EQ(edit_lines_locked(path_, replacing("other", "else")), 0);
    EXPECT_EQ(read_file(path_), "old.example:old.example\nelse:else\n");
    EXPECT_EQ(read_file("/etc/passwd"), before);
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
}

// A path that fits a 4096-byte buffer only without ".tmp".
std::string deep_path_of_length(std::size_t length) {
    std::string path = scratch_dir();
    while (path.size() + 201 < length - 10) {
        path += "/" + std::string(200, 'd');
        mkdir(path.c_str(), 0755);
    }
    path += "/" + std::string(length - path.size() - 1, 'f');
    return path;
}

TEST_F(LineEditTest, TemporaryNameThatDoesNotFitThePathBufferIsRefused) {
    const std::string path = deep_path_of_length(4092);
    ASSERT_EQ(path.size(), 4092U);
    write_file(path, "x\n");
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(path, replacing("x", "y")), -1); });
    expect_reported(printed,
                    with_system_error("ERROR: Unable to truncate or create file " + path + ".tmp: File name too long",
                                      ENAMETOOLONG));
    EXPECT_EQ(read_file(path), "x\n");
}

}  // namespace

namespace {

TEST_F(LineEditTest, AFileThatCannotBeReplacedIsLeftAsItWas) {
    write_file("/tmp/pinned", "old.example:old.example\n");
    ASSERT_EQ(mount("/tmp/pinned", path_.c_str(), nullptr, MS_BIND, nullptr), 0);
    const auto printed = printed_by([&] { EXPECT_EQ(edit_lines_locked(path_, replacing("old", "new")), -1); });
    expect_reported(with_temporary_names_masked(printed),
                    with_system_error("Unable to rename '" + path_ + ".tmp.XXXXXX' to '" + path_ +
                                          "' file: Device or resource busy", EBUSY));
    EXPECT_EQ(read_file(path_), "old.example:old.example\n");
    EXPECT_EQ(sorvane::test::temporaries_beside(path_), std::vector<std::string>{});
    umount2(path_.c_str(), MNT_DETACH);
}

}  // namespace

}  // namespace sorvane::test
