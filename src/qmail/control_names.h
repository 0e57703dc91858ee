// What every control-file and assign edit shares: names in the form they are
// written (ASCII, lower case), popuser's ids, and the assign records.
#pragma once

#include <sys/types.h>

#include <string>

namespace crelm::qmail {

// Records were composed in 4096-byte buffers: text beyond 4095 bytes is cut.
inline constexpr std::size_t kRecordBufferSize = 4096;

// name with its ASCII letters in lower case.
std::string lower_ascii(std::string name);

// The ASCII (IDNA) form of a domain or domain alias in lower case; a name
// that does not convert ends the program ("idn_toascii() failed: %s").
std::string control_domain_name(const std::string& domain);

struct PopuserIds {
    uid_t uid = 0;
    gid_t gid = 0;
};

// popuser's uid and gid; either being 0 (unknown user included, reported
// by the lookup) ends the program with fatal_text.
PopuserIds popuser_ids_or_die(const char* fatal_text);

// "+<domain>:popuser:<uid>:<gid>:<mailnames>/<domain>:::", cut to 4095 bytes.
std::string domain_assign_record(const std::string& domain, const PopuserIds& ids);

// "=<domain>-<key>:popuser:<uid>:<gid>:<mailnames>/<domain>/<mailname>:::"
// in lower case, cut to 4095 bytes: key is the mail name itself for its own
// record and a mail alias for the alias's record.
std::string mailname_assign_record(const std::string& key, const std::string& domain,
                                   const std::string& mailname, const PopuserIds& ids);

// ":popuser:<uid>:<gid>:<mailnames>/<domain>/<mailname>:::", the tail that
// a mail name's record shares with the records of its aliases, in lower case.
std::string mailname_assign_tail(const std::string& domain, const std::string& mailname, const PopuserIds& ids);

// "<mailnames>/<domain>/", the prefix of every home path of the domain.
std::string domain_home_prefix(const std::string& domain);

// Gives assign mode 0644, as after every change of it. 0, or -1 after
// "ERROR: unable to chmod %s: %s\n".
int set_assign_mode();

}  // namespace crelm::qmail
