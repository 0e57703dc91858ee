// Running one write of the mail authentication store. Internal.
#pragma once

#include "stores/mail_auth_statement.h"

#include <functional>

// Called with SQLite's error text when the statement does not complete.
using AuthFailureReport = std::function<void(const char* error)>;

// Prepares, binds and steps one write on an open handle. Returns 0; -1 after
// the prepare or bind message, or after report_failure.
int run_auth_write(sqlite3* db, const char* sql, AuthBindings bindings, const AuthFailureReport& report_failure);

// The same on a handle of its own, opened read-write and closed again.
int run_auth_write_alone(const char* sql, AuthBindings bindings, const AuthFailureReport& report_failure);
