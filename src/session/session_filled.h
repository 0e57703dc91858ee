// Checks shared by the functions that read the session data.
#pragma once

#include <string_view>

#include "session/mail_data.h"

// The session object, or nullptr after logging "Session mail DB info is not
// filled in call to <caller>(). Probably a programming error.".
const crelm::mail::SessionMailData* filled_session_or_report(const char* caller);

// True when data has a domain name and it equals domain exactly.
bool is_session_domain(const crelm::mail::SessionMailData& data, std::string_view domain);

// The first mail named mailname, or nullptr.
const crelm::mail::SessionMail* find_session_mail(const crelm::mail::SessionMailData& data, std::string_view mailname);
