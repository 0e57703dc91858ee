#include "qmail/control_lines.h"

#include "util/file_str.h"

namespace crelm::qmail {

bool remove_line(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::remove_exact, LinePosition::anywhere) == 0;
}

bool remove_lines_containing(const char* path, const std::string& text) {
    return file_str_one(path, text, LineAction::remove_pattern, LinePosition::anywhere) == 0;
}

bool append_line(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::add, LinePosition::end) == 0;
}

bool insert_line_at_top(const char* path, const std::string& line) {
    return file_str_one(path, line, LineAction::add, LinePosition::start) == 0;
}

}  // namespace crelm::qmail
