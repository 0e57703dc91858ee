// Adds or removes a run of mail names as the mail name commands do, each
// followed by a rebuild of the compiled assignment table, so that tests can
// run several of these at once against the same assign.
//
//   mailname_records_worker add <domain> <prefix> <count>
//   mailname_records_worker remove <domain> <prefix> <count>
//
// The mail names are <prefix>0 ... <prefix><count - 1>. Exit status 0 when
// every step succeeded, 1 otherwise (what failed is on standard error).
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qmail/delivery.h"
#include "qmail/mailname_files.h"
#include "runtime/log.h"

namespace {

int add(const std::string& mailname, const std::string& domain) {
    return create_mailname(mailname, domain);
}

int remove(const std::string& mailname, const std::string& domain) {
    return remove_mailname_files(mailname, domain);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: %s add|remove <domain> <prefix> <count>\n", argv[0]);
        return 2;
    }
    log_init("stderr", 6, LOG_MAIL, 0, "mailname_records_worker");
    const std::string action = argv[1];
    const std::string domain = argv[2];
    const std::string prefix = argv[3];
    const int count = std::atoi(argv[4]);
    // The table is rebuilt after every fifth name, as a panel that batches its
    // calls would: enough runs to meet the other workers' runs, few enough that
    // the serialised rebuilds do not dominate the run.
    constexpr int kNewuEvery = 5;
    int failures = 0;
    for (int i = 0; i < count; ++i) {
        const std::string mailname = prefix + std::to_string(i);
        const int step = action == "add" ? add(mailname, domain) : remove(mailname, domain);
        const int newu = (i + 1) % kNewuEvery == 0 ? qmail_newu() : 0;
        if (step != 0 || newu != 0) {
            std::fprintf(stderr, "%s %s: step %d, qmail-newu %d\n", action.c_str(), mailname.c_str(), step, newu);
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
