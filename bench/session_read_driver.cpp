// Reads the session document on standard input into the session object, as
// a command does, and prints how many mails and aliases it holds.
// Used by session_json_bench.sh; exits 1 when the document is refused.
#include <cstdio>

#include "runtime/log.h"
#include "session/session_mail_data.h"

int main() {
    log_init("stderr", 6, 16, 0, "sorvane");
    if (read_session_mail_data(stdin, StdinPoll::Skip) != 0) {
        return 1;
    }
    const crelm::mail::SessionMailData* data = existing_session_mail_data();
    std::size_t aliases = 0;
    for (const crelm::mail::SessionMail& mail : data->mails) {
        aliases += mail.aliases.size();
    }
    std::printf("mails %zu aliases %zu\n", data->mails.size(), aliases);
    release_session_mail_data();
    return 0;
}
