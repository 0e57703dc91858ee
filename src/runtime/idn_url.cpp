#include <regex.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "runtime/idn.h"
#include "runtime/log.h"

namespace {

constexpr const char* kUrlPattern = "^(ftp://|https?://)?([^@]+@)?([^/:]+)(.*)?$";
enum UrlGroup { kWhole, kScheme, kUserInfo, kHost, kRest, kGroupCount };

std::array<char, 4096> url_buffer{};

class CompiledUrlPattern {
public:
    CompiledUrlPattern() {
        const int status = regcomp(&regex_, kUrlPattern, REG_EXTENDED);
        if (status != 0)
            report_error(1, 1, "regcomp() failed: %s", error_text(status).c_str());
    }
    ~CompiledUrlPattern() { regfree(&regex_); }
    CompiledUrlPattern(const CompiledUrlPattern&) = delete;
    CompiledUrlPattern& operator=(const CompiledUrlPattern&) = delete;

    const regex_t* get() const { return &regex_; }

    std::string error_text(int status) const {
        char text[256];
        regerror(status, &regex_, text, sizeof text);
        return text;
    }

private:
    regex_t regex_{};
};

std::optional<std::string> group_text(const std::string& url, const regmatch_t& match) {
    if (match.rm_so < 0)
        return std::nullopt;
    return url.substr(static_cast<std::size_t>(match.rm_so), static_cast<std::size_t>(match.rm_eo - match.rm_so));
}

// Appends piece to the URL buffer, keeping the whole within 4095 characters.
void append_bounded(const std::optional<std::string>& piece) {
    if (!piece)
        return;
    const std::size_t used = std::strlen(url_buffer.data());
    std::snprintf(url_buffer.data() + used, url_buffer.size() - used, "%s", piece->c_str());
}

const char* build_url(const std::string& url, const regmatch_t (&groups)[kGroupCount], const std::string& host) {
    url_buffer[0] = '\0';
    append_bounded(group_text(url, groups[kScheme]));
    append_bounded(group_text(url, groups[kUserInfo]));
    append_bounded(host);
    append_bounded(group_text(url, groups[kRest]));
    return url_buffer.data();
}

}  // namespace

// The URL failures below are verdicts on the text, not failed system calls:
// errno is cleared so that no stale system error is added to the report.
const char* idn_url_toascii(const std::string& url) {
    const CompiledUrlPattern pattern;
    regmatch_t groups[kGroupCount];
    const int status = regexec(pattern.get(), url.c_str(), kGroupCount, groups, 0);
    if (status != 0) {
        errno = 0;
        report_error(0, 0, "regexec() failed: %s", pattern.error_text(status).c_str());
        return nullptr;
    }
    const std::optional<std::string> host = group_text(url, groups[kHost]);
    if (!host) {
        errno = 0;
        report_error(0, 0, "no hostname found in URL");
        return nullptr;
    }
    const std::optional<std::string> ascii_host = idn_toascii(*host);
    if (!ascii_host) {
        errno = 0;
        report_error(0, 0, "idn_toascii() failed: %s", idn_status_text(idn_last_status()));
        return nullptr;
    }
    return build_url(url, groups, *ascii_host);
}
