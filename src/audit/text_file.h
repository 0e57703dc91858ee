// Reading a file whole without changing anything and without being led
// elsewhere: the last component is never followed, a FIFO or device is
// never opened for reading (O_NONBLOCK, then fstat), and nothing is locked.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace crelm::audit {

enum class FileState {
    present,      // a regular file, read whole into text
    missing,      // nothing at the path (ENOENT)
    link,         // a symbolic link at the last component
    not_regular,  // a directory, FIFO, device or socket
    too_large,    // above the caller's limit
    unreadable,   // any other failure; error holds errno
};

struct TextFile {
    FileState state = FileState::missing;
    int error = 0;
    struct stat info {};  // valid unless missing or unreadable
    std::string text;
};

// The file at the absolute path (links owned by root on the way are
// followed, as the system's own /var/run is).
TextFile read_text_file(const std::string& path, off_t limit = -1);
// The file name inside the directory open on dir_fd (a mail user's tree).
TextFile read_text_file_at(int dir_fd, const std::string& name, off_t limit = -1);

// Why a file could not be read, for a finding's detail.
std::string file_state_text(const TextFile& file);

// The lines of text without their newlines; a last line without a newline
// is still a line.
std::vector<std::string_view> text_lines(std::string_view text);

}  // namespace crelm::audit
