#include "util/held_lines.h"

#include <utility>

namespace crelm::util {
namespace {

struct HeldLines {
    std::string path;
    std::unique_ptr<LineTable> table;
};

HeldLines& held() {
    static HeldLines lines;
    return lines;
}

}  // namespace

void hold_lines(const std::string& path, std::unique_ptr<LineTable> table) {
    held() = HeldLines{path, std::move(table)};
}

LineTable* held_lines(std::string_view path) {
    HeldLines& lines = held();
    return lines.table && lines.path == path ? lines.table.get() : nullptr;
}

void release_held_lines() {
    held() = HeldLines{};
}

}  // namespace crelm::util
