#include "audit/findings.h"

#include <algorithm>

namespace crelm::audit {

std::vector<Finding> Findings::sorted() const {
    std::vector<Finding> result = findings_;
    std::sort(result.begin(), result.end(), finding_before);
    auto same = [](const Finding& a, const Finding& b) { return !finding_before(a, b) && !finding_before(b, a); };
    result.erase(std::unique(result.begin(), result.end(), same), result.end());
    return result;
}

}  // namespace crelm::audit
