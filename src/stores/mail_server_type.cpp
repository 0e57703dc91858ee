// Which mail server the panel runs, as its feature query tells.
#include "stores/mail_auth_store.h"

#include "runtime/log.h"
#include "stores/mail_auth_paths.h"

#include <strings.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr const char* kProductRoot = "/opt/qvt";
constexpr std::string_view kServerFeature = "$features['SMTP_Server']";
constexpr int kUndecided = -1;

struct PipeCloser {
    void operator()(FILE* stream) const { pclose(stream); }
};
using PipeStream = std::unique_ptr<FILE, PipeCloser>;

// One line without its line end; false at the end of the stream.
bool read_line(FILE* stream, std::string& line) {
    line.clear();
    int c = 0;
    while ((c = std::fgetc(stream)) != EOF && c != '\n')
        line.push_back(static_cast<char>(c));
    return c != EOF || !line.empty();
}

// The server type a value names. The comparison deliberately stops one
// character short of the value's length, so "p" (or any one character)
// already counts as postfix; the feature query's callers rely on it.
int server_type_of_value(std::string_view value) {
    const std::size_t compared = value.empty() ? 0 : value.size() - 1;
    if (!value.empty() && strncasecmp(value.data(), "postfix", compared) == 0)
        return kMailServerPostfix;
    if (!value.empty() && strncasecmp(value.data(), "qmail", compared) == 0)
        return kMailServerQmail;
    log_message(LOG_INFO, "Unknown server style \"%.*s\", skipped", static_cast<int>(compared), value.data());
    return kUndecided;
}

// The type a line of the feature query decides, or kUndecided.
int server_type_of_line(const std::string& line) {
    if (line.compare(0, kServerFeature.size(), kServerFeature) != 0)
        return kUndecided;
    const std::string::size_type open = line.find_first_of("'\"", kServerFeature.size());
    const std::string::size_type close =
        open == std::string::npos ? std::string::npos : line.find_first_of("'\"", open + 1);
    if (close == std::string::npos) {
        log_message(LOG_INFO, "Unparseable line \"%s\", skipped", line.c_str());
        return kUndecided;
    }
    return server_type_of_value(std::string_view(line).substr(open + 1, close - open - 1));
}

}  // namespace

int detect_mail_server_type() {
    char command[4096];
    std::snprintf(command, sizeof command, "%s/admin/sbin/sorvane-server --features", kProductRoot);
    const PipeStream output(popen(command, "r"));
    if (!output) {
        log_message(LOG_INFO, "unable to execute %s: %s", command, std::strerror(errno));
        return kUndecided;
    }
    std::string line;
    while (read_line(output.get(), line)) {
        if (const int type = server_type_of_line(line); type != kUndecided)
            return type;
    }
    log_message(LOG_INFO, "Unable to determine mail server type from ``sorvane-server --features''");
    return kUndecided;
}
