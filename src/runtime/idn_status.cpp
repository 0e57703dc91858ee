#include "runtime/idn.h"

namespace {

struct StatusText {
    int status;
    const char* text;
};

constexpr StatusText kStatusTexts[] = {
    {0, "Success"},
    {1, "Stringprep error"},
    {2, "Punycode error"},
    {3, "Contains non-LDH characters"},
    {4, "Contains minus"},
    {5, "Invalid length"},
    {6, "ACE prefix not found"},
    {7, "Verify error"},
    {8, "ACE prefix found"},
    {9, "Iconv error"},
    {kIdnaAllocationFailed, "Cannot allocate buffer"},
};

}  // namespace

const char* idn_status_text(int status) {
    for (const StatusText& entry : kStatusTexts) {
        if (entry.status == status)
            return entry.text;
    }
    return "Unknown error";
}

namespace crelm::idn {

const char* IdnaError::what() const noexcept { return idn_status_text(status_); }

}  // namespace crelm::idn
