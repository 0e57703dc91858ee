#include "runtime/qvt_conf_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "runtime/log.h"

namespace {

constexpr int kConfLogPriority = 12;  // user facility, warning level

// The C locale's classes, spelled out so that no locale can change them.
bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

bool is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

std::size_t skip_blanks(const std::string& line, std::size_t pos) {
    while (pos < line.size() && is_blank(line[pos]))
        ++pos;
    return pos;
}

std::size_t skip_name(const std::string& line, std::size_t pos) {
    while (pos < line.size() && is_name_char(line[pos]))
        ++pos;
    return pos;
}

// The value from start up to a "#" or the end of the line, trailing white
// space (the newline included) cut off.
std::string value_from(const std::string& line, std::size_t start) {
    std::size_t end = line.find('#', start);
    if (end == std::string::npos)
        end = line.size();
    while (end > start && is_blank(line[end - 1]))
        --end;
    return line.substr(start, end - start);
}

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileClose>;

struct LineBuffer {
    char* data = nullptr;
    std::size_t capacity = 0;
    ~LineBuffer() { std::free(data); }
};

int fail_out_of_memory() {
    log_message(kConfLogPriority, "Unable to form configuration: %s", std::strerror(ENOMEM));
    errno = ENOMEM;
    return -1;
}

}  // namespace

int parse_qvt_conf_line(const std::string& line, QvtConfSet& set) {
    const std::size_t name_start = skip_blanks(line, 0);
    if (name_start == line.size() || line[name_start] == '#')
        return 0;
    const std::size_t name_end = skip_name(line, name_start);
    const char* rest = line.c_str() + name_start;
    if (name_end == line.size() || !is_blank(line[name_end])) {
        log_message(kConfLogPriority, "Invalid variable definition %s\nExpected a space after variable name\n", rest);
        return -1;
    }
    const std::size_t value_start = skip_blanks(line, name_end);
    if (value_start == line.size() || line[value_start] == '#') {
        log_message(kConfLogPriority, "Invalid variable definition %s\nExpected a value", rest);
        return -1;
    }
    set[line.substr(name_start, name_end - name_start)] = value_from(line, value_start);
    return 0;
}

int read_qvt_conf_file(const char* path, QvtConfSet& set) {
    const File file(std::fopen(path, "r"));
    if (!file) {
        const int saved_errno = errno;
        log_message(kConfLogPriority, "unable to open configuration file %s: %s\n", path, std::strerror(saved_errno));
        errno = saved_errno;
        return -1;
    }
    try {
        LineBuffer buffer;
        ssize_t length;
        while ((length = getline(&buffer.data, &buffer.capacity, file.get())) >= 0)
            parse_qvt_conf_line(std::string(buffer.data, static_cast<std::size_t>(length)), set);
    } catch (const std::bad_alloc&) {
        return fail_out_of_memory();
    }
    if (std::ferror(file.get())) {
        const int saved_errno = errno;
        log_message(kConfLogPriority, "Unable to read configuration file: %s", std::strerror(saved_errno));
        errno = saved_errno;
        return -1;
    }
    return 0;
}
