#include "util/line_writer.h"

int write_lines(std::FILE* stream, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (std::fputs(line.c_str(), stream) == EOF)
            return -1;
        if ((line.empty() || line.back() != '\n') && std::fputc('\n', stream) == EOF)
            return -1;
    }
    return 0;
}
