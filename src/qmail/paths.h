// Fixed locations of the qmail installation that sorvane keeps in step.
#pragma once

namespace crelm::qmail {

inline constexpr const char* kQmailRoot = "/var/qmail";
inline constexpr const char* kControlDir = "/var/qmail/control";
inline constexpr const char* kRcptHosts = "/var/qmail/control/rcpthosts";
inline constexpr const char* kVirtualDomains = "/var/qmail/control/virtualdomains";
inline constexpr const char* kLocals = "/var/qmail/control/locals";
inline constexpr const char* kRejectNonExist = "/var/qmail/control/rejectnonexist";
inline constexpr const char* kUsersAssign = "/var/qmail/users/assign";
inline constexpr const char* kQmailNewu = "/var/qmail/bin/qmail-newu";
inline constexpr const char* kDefaultDelivery = "/var/qmail/mailnames/.default_delivery";

}  // namespace crelm::qmail
