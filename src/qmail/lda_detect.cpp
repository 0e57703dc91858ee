// Which local delivery agent this server delivers with.
#include "qmail/delivery.h"

#include "runtime/log.h"

#include <sys/stat.h>
#include <syslog.h>

namespace {

constexpr const char* kDeliverquota = "/usr/bin/deliverquota";
constexpr const char* kDovecotLda = "/usr/lib/dovecot/dovecot-lda";

bool usable_program(const struct stat& info) {
    return S_ISREG(info.st_mode) && (info.st_mode & 0111) != 0;
}

int found_lda() {
    struct stat info {};
    // deliverquota wins when both are installed.
    const char* path = kDeliverquota;
    int kind = kLdaDeliverquota;
    if (::stat(path, &info) != 0) {
        path = kDovecotLda;
        kind = kLdaDovecot;
        if (::stat(path, &info) != 0) {
            log_message(LOG_ERR, "Unable to detect IMAP/POP3 server type - no LDA found");
            return kLdaUnknown;
        }
    }
    if (!usable_program(info)) {
        log_message(LOG_ERR,
                    "Unable to detect IMAP/POP3 server type - LDA is present at '%s' but is not a regular file or "
                    "is not executable",
                    path);
        return kLdaUnknown;
    }
    return kind;
}

}  // namespace

int detect_lda() {
    static int kept = kLdaUnknown;
    if (kept == kLdaUnknown)
        kept = found_lda();
    return kept;
}
