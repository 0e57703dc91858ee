// The delivery line the server's own setup chose for mailboxes.
#include "qmail/delivery.h"

#include "qmail/paths.h"
#include "qmail/qmail_report.h"
#include "util/stdio_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using crelm::qmail::kDefaultDelivery;
using crelm::qmail::log_error;

namespace {

// The line was read into a 4096-byte buffer: at most 4095 bytes of it.
constexpr int kLineBufferSize = 4096;

bool usable_file(const char* path) {
    struct stat info {};
    return ::stat(path, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0;
}

}  // namespace

int read_default_delivery(std::string& line) {
    if (!usable_file(kDefaultDelivery)) {
        log_error("Unable to get default delivery transport string from %s\n", kDefaultDelivery);
        return -1;
    }
    crelm::util::StdioFile file(std::fopen(kDefaultDelivery, "re"));
    if (!file) {
        log_error("Unable to open default delivery config file(%s): %s\n", kDefaultDelivery, std::strerror(errno));
        return -1;
    }
    char buffer[kLineBufferSize];
    errno = 0;
    if (std::fgets(buffer, sizeof buffer, file.get()) == nullptr) {
        log_error("Unable to read line from file: %s: %s\n", kDefaultDelivery, std::strerror(errno));
        return -1;
    }
    line = buffer;
    return 0;
}
