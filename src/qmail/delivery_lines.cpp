// The delivery lines of a mail name's ".qmail".
#include "qmail/delivery.h"

#include "util/file_str.h"

const std::vector<std::string>& known_delivery_lines() {
    static const std::vector<std::string> lines = {
        "./Maildir/",
        "| /usr/bin/deliverquota ./Maildir",
        "| /usr/bin/deliverquota -w 94 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
        "| /usr/bin/deliverquota -w 95 -x /usr/lib/crelm-9.0/send-quota-warning ./Maildir",
        "| /usr/lib/dovecot/dovecot-lda -d \"$DELIVERED_TO\" -a \"${ORIGINAL_RECIPIENT:-$DELIVERED_TO}\"",
    };
    return lines;
}

int remove_delivery_strings(const std::string& path) {
    return file_str(path, known_delivery_lines(), LineAction::remove_exact, LinePosition::anywhere) == 0 ? 0 : -1;
}
