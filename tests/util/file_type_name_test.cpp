#include "util/file_type_name.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

namespace {

TEST(FileTypeName, NamesEveryFileType) {
    EXPECT_EQ(std::string(file_type_name(S_IFBLK | 0660)), "block device");
    EXPECT_EQ(std::string(file_type_name(S_IFCHR | 0666)), "character device");
    EXPECT_EQ(std::string(file_type_name(S_IFDIR | 0755)), "directory");
    EXPECT_EQ(std::string(file_type_name(S_IFIFO | 0600)), "fifo");
    EXPECT_EQ(std::string(file_type_name(S_IFREG | 0644)), "regular file");
    EXPECT_EQ(std::string(file_type_name(S_IFLNK | 0777)), "symbolic link");
    EXPECT_EQ(std::string(file_type_name(S_IFSOCK | 0755)), "socket");
    EXPECT_EQ(std::string(file_type_name(0644)), "unknown");
}

TEST(FileTypeName, NamesTheTypeOfARealObject) {
    struct stat info {};
    ASSERT_EQ(lstat("/dev/null", &info), 0);
    EXPECT_EQ(std::string(file_type_name(info.st_mode)), "character device");
}

}  // namespace
