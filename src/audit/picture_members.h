// The members of the panel's picture that sorvane's standard-input document
// does not have ("enabled", "action", per mail "mailbox"), read while the
// shared document reader reads the rest of each domain.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "audit/picture.h"
#include "session/stdin_document.h"

namespace crelm::audit {

class PictureMembers : public mail::DocumentExtension {
public:
    Read read_domain_member(mail::JsonReader& reader, std::string_view name) override;
    Read read_mail_member(mail::JsonReader& reader, std::size_t mail, std::string_view name) override;

    std::optional<bool> enabled;
    std::optional<PictureAction> action;
    std::vector<std::optional<bool>> mailboxes;  // by the mail's index; shorter when the rest are absent
};

}  // namespace crelm::audit
