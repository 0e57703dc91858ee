// Runtime configuration: host-specific values by variable name, taken from
// /etc/qvt/qvt.conf when it defines them and from the compile-time defaults
// otherwise. Only the variables of the compile-time table can be asked for.
//
// The file is read at the first lookup, and again at each later lookup for
// as long as reading it has not succeeded; once read it is kept for the life
// of the process. A missing or unreadable file is not fatal: every variable
// then answers with its default.
#pragma once

#include <string_view>

inline constexpr const char* kQvtConfPath = "/etc/qvt/qvt.conf";

// Indexes into the compile-time table. Its entries are framed by marker
// entries that are never real variables; the index is a variable's identity.
enum QvtConfIndex : int {
    kQvtConfMinMarker = 0,
    kCrelmMailnamesD,
    kRblsmtpd,
    kClientPhpBin,
    kLibCryptoPath,
    kLibSslPath,
    kAwstatsDocD,
    kAwstatsToolsD,
    kAwstatsBinD,
    kAwstatsEtcD,
    kMailmanVarD,
    kMailmanRootD,
    kPgsqlDataD,
    kPgsqlBinD,
    kMysqlBinD,
    kMysqlVarD,
    kWebStat,
    kDumpD,
    kDumpTmpD,
    kNamedRunRootD,
    kHttpdBin,
    kHttpdService,
    kHttpdLogD,
    kHttpdIncludeD,
    kHttpdConfD,
    kHttpdVhostsD,
    kMysqlSocket,
    kSaMaxMailSize,
    kSniSupport,
    kProductRootD,
    kQvtConfMaxMarker,
};

// The name and the default at an index of the table (markers included);
// null outside 0..kQvtConfMaxMarker.
const char* qvt_conf_name_at(int index);
const char* qvt_conf_default_at(int index);

// The table index of a name, or -1. The scan runs from the lower marker up to
// the last real variable, so the lower marker's name is found too (answering
// with its marker value) while the upper marker's is not.
int qvt_conf_index_of(std::string_view name);

// The value of a variable, or null for a name the table does not know, which
// is logged at error level as "variable '<name>' was found neither in
// /etc/qvt/qvt.conf, nor in compile-time defaults" (even when the file
// defines it). The text lives as long as the process.
const char* get_conf_value(std::string_view name);

// The same for a table index from kQvtConfMinMarker up to the last real
// variable; null (logged at error level) for any other index.
const char* get_conf_value_by_index(int index);
