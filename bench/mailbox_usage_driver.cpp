// Prints what --get-mailbox-size computes for one mailbox, for timing the
// mailbox size calculation on its own (process start included).
//
//   mailbox_usage_driver <domain> <mailname> [--in-blocks]
#include <cstdio>
#include <cstring>

#include "mailbox/mailbox_disk_usage.h"
#include "runtime/log.h"

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <domain> <mailname> [--in-blocks]\n", argv[0]);
        return 2;
    }
    // Timed runs must not fill the system log: a destination other than
    // "console" or "stderr" silences the logger.
    log_init("none", 6, 16, 0, "mailbox_usage_driver");
    const bool in_blocks = argc > 3 && std::strcmp(argv[3], "--in-blocks") == 0;
    const long long size = mailbox_disk_usage(argv[1], argv[2], in_blocks ? SizeUnit::Blocks : SizeUnit::Bytes);
    std::printf("%lld\n", size);
    return size < 0 ? 1 : 0;
}
