// What one audit run found, and how much it read.
#pragma once

#include <cstddef>
#include <vector>

#include "audit/finding.h"

namespace crelm::audit {

struct ReadCounts {
    std::size_t domains = 0;
    std::size_t mail_names = 0;
    std::size_t rows = 0;
};

class Findings {
public:
    void add(Finding finding) { findings_.push_back(std::move(finding)); }
    void add(Severity severity, std::string code, std::string object, std::string detail,
             std::vector<std::vector<std::string>> repairs = {}, RepairPhase phase = RepairPhase::rebuild) {
        findings_.push_back(Finding{severity, std::move(code), std::move(object), std::move(detail),
                                    std::move(repairs), phase, {}});
    }
    bool empty() const { return findings_.empty(); }
    std::size_t size() const { return findings_.size(); }
    // The findings in print order, each once (two checks may reach the same
    // conclusion from both ends).
    std::vector<Finding> sorted() const;

    ReadCounts counts;

private:
    std::vector<Finding> findings_;
};

}  // namespace crelm::audit
