// The name rules shared by option values and the standard-input document.
// Names are checked in their ASCII (IDNA) form, after lower-casing.
#pragma once

#include <string_view>

namespace crelm {

// Domain name: 1-255 bytes, no leading, trailing or doubled dot, labels of at
// most 63 letters, digits and hyphens, no label starting with a hyphen, and
// no label followed by a dot ending with one. The last label may end with a
// hyphen (kept on purpose). Bytes above 127 fail unless the C library calls
// them decimal digits in the current locale.
bool is_valid_domain_name(std::string_view name);

// Local part of an address (mail name, mail alias, mailing list): 1-245
// bytes, no leading, trailing or doubled dot, only letters, digits and
// ".-_&+'". Bytes above 127 as for domain names.
bool is_valid_mail_name(std::string_view name);

}  // namespace crelm
