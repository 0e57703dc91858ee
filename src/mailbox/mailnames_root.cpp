#include "mailbox/mailnames_root.h"

#include "runtime/qvt_conf.h"

namespace crelm::mailbox {

std::string mailnames_root() {
    const char* root = get_conf_value_by_index(kCrelmMailnamesD);
    return root != nullptr ? root : "/var/qmail/mailnames";
}

}  // namespace crelm::mailbox
