#include "qmail/mailname_rewrites.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace crelm::qmail {
namespace {

using crelm::util::LineFate;
using crelm::util::LineRewrite;

bool is_alnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool in_mail_name(char c) {
    return is_alnum(c) || std::string_view("._&+'-").find(c) != std::string_view::npos;
}

bool in_domain_name(char c) {
    return is_alnum(c) || c == '.' || c == '-';
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Whether text at at begins with word, letter case aside.
bool holds_at(std::string_view text, std::size_t at, std::string_view word) {
    if (at > text.size() || text.size() - at < word.size())
        return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (lower(text[at + i]) != lower(word[i]))
            return false;
    }
    return true;
}

// An address found in a line: what stands before it (nothing, the "&" that
// starts a forwarding line or one character no mail name holds), the
// domain as written, and where the match ends (past the one character
// after the domain, when there is one).
struct AddressMatch {
    std::size_t lead_length;
    std::size_t domain_start;
    std::size_t domain_end;
    std::size_t end;
};

class AddressFinder {
public:
    AddressFinder(const std::string& local, const std::string& domain) : local_(local), domain_(domain) {}

    // The match of the address whose lead starts at start, the longest one
    // when there are several.
    std::optional<AddressMatch> at(std::string_view line, std::size_t start) const {
        std::optional<AddressMatch> found;
        if (start == 0) {
            longest(found, with_lead(line, 0, 0));
            if (!line.empty() && line[0] == '&')
                longest(found, with_lead(line, 0, 1));
        }
        if (start < line.size() && !in_mail_name(line[start]))
            longest(found, with_lead(line, start, 1));
        return found;
    }

private:
    static void longest(std::optional<AddressMatch>& found, const std::optional<AddressMatch>& candidate) {
        if (candidate && (!found || candidate->end > found->end))
            found = candidate;
    }

    std::optional<AddressMatch> with_lead(std::string_view line, std::size_t start, std::size_t lead) const {
        const std::size_t at_sign = start + lead + local_.size();
        if (!holds_at(line, start + lead, local_) || at_sign >= line.size() || line[at_sign] != '@' ||
            !holds_at(line, at_sign + 1, domain_))
            return std::nullopt;
        const std::size_t domain_end = at_sign + 1 + domain_.size();
        if (domain_end == line.size())
            return AddressMatch{lead, at_sign + 1, domain_end, domain_end};
        if (in_domain_name(line[domain_end]))
            return std::nullopt;
        return AddressMatch{lead, at_sign + 1, domain_end, domain_end + 1};
    }

    std::string local_;
    std::string domain_;
};

// Every match from the left, each search going on after the previous match
// (which took the character after its address with it).
bool rename_once(const AddressFinder& finder, const std::string& new_local, std::string& line) {
    std::string result;
    std::size_t copied = 0;
    for (std::size_t start = 0; start <= line.size(); ++start) {
        const std::optional<AddressMatch> match = finder.at(line, start);
        if (!match)
            continue;
        result.append(line, copied, start + match->lead_length - copied);
        result.append(new_local).append("@");
        result.append(line, match->domain_start, match->end - match->domain_start);
        copied = match->end;
        start = match->end - 1;
        if (match->end == line.size())
            break;
    }
    if (copied == 0)
        return false;
    result.append(line, copied);
    line = std::move(result);
    return true;
}

}  // namespace

LineRewrite repoint_records(const std::string& old_tail, const std::string& new_tail) {
    return LineRewrite{[old_tail, new_tail](std::string_view line, std::string& replaced) {
                           if (line.size() <= old_tail.size() || line[0] != '=' || !line.ends_with(old_tail))
                               return LineFate::keep;
                           const std::size_t key_end = line.size() - old_tail.size();
                           const std::size_t colon = line.find(':', 1);
                           if (colon != std::string_view::npos && colon < key_end)
                               return LineFate::keep;
                           replaced.assign(line.substr(0, key_end)).append(new_tail);
                           return LineFate::replace;
                       },
                       old_tail,
                       {}};
}

LineRewrite rename_addresses(const std::string& old_local, const std::string& new_local,
                             const std::vector<std::string>& domains) {
    return LineRewrite{[old_local, new_local, domains](std::string_view text, std::string& replaced) {
                           std::string line(text);
                           bool renamed = false;
                           for (const std::string& domain : domains) {
                               const AddressFinder finder(old_local, domain);
                               // A match takes the character after the
                               // address with it, so an address right behind
                               // another is only reached by a second round.
                               renamed = rename_once(finder, new_local, line) | renamed;
                               renamed = rename_once(finder, new_local, line) | renamed;
                           }
                           if (!renamed)
                               return LineFate::keep;
                           replaced = std::move(line);
                           return LineFate::replace;
                       },
                       "",
                       {}};
}

}  // namespace crelm::qmail
