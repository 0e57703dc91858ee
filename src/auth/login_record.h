// The row of the mail authentication store that a login is checked against,
// read with one indexed query (users by name and domain id, domains by
// name) through a handle that changes nothing: read-only, never rolling a
// journal back, never creating a file, and waiting for a writer no longer
// than a bound.
#pragma once

#include <string>

#include "auth/login_address.h"
#include "auth/secret_text.h"

namespace crelm::auth {

// A writer holds the store for milliseconds; a login waits this long at most.
inline constexpr int kStoreBusyBoundMs = 3000;

struct LoginRecord {
    SecretText stored;     // userPassword (enciphered), else cmusaslsecretPLAIN (crypted)
    bool crypted = false;  // stored comes from cmusaslsecretPLAIN
    int user_status = 0;   // 0 enabled
    int domain_status = 0; // 0 enabled
};

enum class RecordLookup {
    found,
    missing,     // no such domain or user
    no_password, // the row holds neither password column
    failed,      // the store could not be read now (why in failure)
};

RecordLookup read_login_record(const std::string& db_path, const LoginAddress& address, LoginRecord& record,
                               std::string& failure);

// The query, for the plan check of the tests.
extern const char* const kLoginRecordQuery;

}  // namespace crelm::auth
