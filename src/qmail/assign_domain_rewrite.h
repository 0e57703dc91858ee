// The rewrite of assign for a domain rename.
#pragma once

#include <string>

#include "util/line_rewrite.h"

namespace crelm::qmail {

// The domain's own records get the new name; every other field stays:
//   "=<from>-<f1>:<f2>:<f3>:<f4>:<root>/<from>/<f5>:<f6>:<f7>:" becomes
//   "=<to>-<f1>:<f2>:<f3>:<f4>:<root>/<to>/<f5>:<f6>:<f7>:" and
//   "+<from>:<f1>:<f2>:<f3>:<root>/<from>:<f4>:<f5>:" becomes
//   "+<to>:<f1>:<f2>:<f3>:<root>/<to>:<f4>:<f5>:",
// where no field <fN> holds a ":" and root is the mail names' root.
// Records of a domain whose name only begins with from ("<from>-x.com",
// "<from>x.com"), or whose home lies elsewhere, stay as they are.
crelm::util::LineRewrite rename_assign_domain(const std::string& from, const std::string& to,
                                              const std::string& root);

}  // namespace crelm::qmail
