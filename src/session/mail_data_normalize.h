// What happens to session data after it has been read: names in lower case
// and quotas in bytes.
#pragma once

#include <cstdint>

#include "session/mail_data.h"

namespace crelm::mail {

// Multiplier of a quota unit ("B", "KB", "MB", "GB", "TB", powers of 1024,
// case-sensitive); 0 for any other unit.
std::int64_t quota_unit_multiplier(const char* unit);

// Lower-cases (C locale, byte-wise, in place) the domain name, the domain
// aliases, the mail names, the mail aliases and the certificate names.
void lower_case_names(SessionMailData& data);

// quota times its unit's multiplier into bytes; false (bytes unchanged) when
// the product does not fit a signed 64-bit number.
bool quota_in_bytes(std::int64_t quota, const char* unit, std::int64_t& bytes);

// Multiplies every quota above 0 by its unit's multiplier. A product that
// does not fit a signed 64-bit number is never kept: it is logged at error
// level ("Mailbox quota of '<name>' is too large: <quota> <unit> is more
// bytes than a quota can hold") and false is returned, the quotas after it
// left as they were read.
bool convert_quotas_to_bytes(SessionMailData& data);

// Both of the above, in that order; convert_quotas_to_bytes's result.
bool normalize_read_mail_data(SessionMailData& data);

}  // namespace crelm::mail
