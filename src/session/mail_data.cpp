#include "session/mail_data.h"

#include <cstring>

namespace crelm::mail {

char* SessionMailData::keep(std::string_view text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.data(), text.size());
    copy[text.size()] = '\0';
    kept_texts_.push_back(std::move(copy));
    return kept_texts_.back().get();
}

}  // namespace crelm::mail
