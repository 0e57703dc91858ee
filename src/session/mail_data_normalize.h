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

// Multiplies every quota above 0 by its unit's multiplier; a result below
// -1 (a wrapped product) is logged as a warning and kept.
void convert_quotas_to_bytes(SessionMailData& data);

// Both of the above, in that order.
void normalize_read_mail_data(SessionMailData& data);

}  // namespace crelm::mail
