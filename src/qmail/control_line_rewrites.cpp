#include "qmail/control_line_rewrites.h"

namespace crelm::qmail {

using crelm::util::LineFate;
using crelm::util::LineRewrite;

LineRewrite drop_line(const std::string& line) {
    return LineRewrite{[line](std::string_view text, std::string&) {
                           return text == line ? LineFate::drop : LineFate::keep;
                       },
                       line,
                       {}};
}

LineRewrite append_line(const std::string& line) {
    return LineRewrite{[](std::string_view, std::string&) { return LineFate::keep; }, "", {line}};
}

LineRewrite rename_whole_line(const std::string& from, const std::string& to) {
    return LineRewrite{[from, to](std::string_view text, std::string& replaced) {
                           if (text != from)
                               return LineFate::keep;
                           replaced = to;
                           return LineFate::replace;
                       },
                       from,
                       {}};
}

LineRewrite rename_virtual_domain(const std::string& from, const std::string& to) {
    const std::string old_key = from + ":";
    const std::string old_target = ":" + from;
    return LineRewrite{[old_key, old_target, new_key = to + ":", new_target = ":" + to](std::string_view text,
                                                                                      std::string& replaced) {
                           const bool key = text.starts_with(old_key);
                           std::string line(text);
                           if (key)
                               line.replace(0, old_key.size(), new_key);
                           const bool target = std::string_view(line).ends_with(old_target);
                           if (target)
                               line.replace(line.size() - old_target.size(), old_target.size(), new_target);
                           if (!key && !target)
                               return LineFate::keep;
                           replaced = std::move(line);
                           return LineFate::replace;
                       },
                       from,
                       {}};
}

}  // namespace crelm::qmail
