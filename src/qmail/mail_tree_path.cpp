#include "qmail/mail_tree_path.h"

#include "mailbox/mailnames_root.h"

namespace crelm::qmail {

bool is_in_mail_tree(const std::string& path) {
    return path.starts_with(crelm::mailbox::mailnames_root() + "/");
}

}  // namespace crelm::qmail
