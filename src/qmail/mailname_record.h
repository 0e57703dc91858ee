// The "=" record of a mail name, for the steps that must know whether it was
// in assign before they changed anything.
#pragma once

#include <string>

namespace crelm::qmail {

// The record of mailname at domain as qmail_add_mailname_record writes it.
// Empty names ("empty mailname, maildomain or mailalias") and an unknown
// popuser ("Unable to define UID or GID for user popuser") end the program.
std::string mailname_record_line(const std::string& mailname, const std::string& domain);

// The "=" record of alias at domain, which delivers to mailname's home.
// Empty names ("empty mailname, maildomain or mailalias") and an unknown
// popuser (unknown_owner_text) end the program.
std::string alias_record(const std::string& mailname, const std::string& domain, const std::string& alias,
                         const char* unknown_owner_text);

// Whether assign holds record; true as well when assign cannot be read, so
// that a caller that undoes only its own work leaves the record alone.
bool assign_holds_record(const std::string& record);

// qmail_add_mailname_record, which also tells in held_before whether assign
// held the record before (read by the rewrite itself; true as well when
// assign could not be read), for a caller that undoes only its own work.
int add_mailname_record(const std::string& mailname, const std::string& domain, bool& held_before);

}  // namespace crelm::qmail
