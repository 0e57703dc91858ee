#include "util/first_line.h"

#include "runtime/log.h"
#include "util/stdio_file.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

bool is_c_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_c_space(text.back()))
        text.remove_suffix(1);
    while (!text.empty() && is_c_space(text.front()))
        text.remove_prefix(1);
    return text;
}

struct FreeCharBuffer {
    void operator()(char* text) const { std::free(text); }
};

}  // namespace

int read_first_line(std::string& line, std::size_t buffer_size, const std::string& path) {
    line.clear();
    crelm::util::StdioFile file(std::fopen(path.c_str(), "re"));
    if (!file) {
        report_error(0, 0, "Unable to open file %s: %s\n", path.c_str(), std::strerror(errno));
        return -1;
    }
    char* raw = nullptr;
    std::size_t capacity = 0;
    errno = 0;
    const ssize_t length = ::getline(&raw, &capacity, file.get());
    const std::unique_ptr<char, FreeCharBuffer> owned(raw);
    if (length < 0 && std::ferror(file.get())) {
        report_error(0, 0, "Unable to read line from file: %s\n", std::strerror(errno));
        return -1;
    }
    const std::string_view first =
        length > 0 ? trimmed(std::string_view(raw, static_cast<std::size_t>(length))) : std::string_view();
    if (first.size() >= buffer_size) {
        errno = 0;
        report_error(0, 0, "The buffer too short\n");
        return -1;
    }
    line.assign(first);
    return 0;
}
