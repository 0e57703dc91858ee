// Everything the audit reads from the server, read once, up front: qmail's
// control files and assignment table, the rows of the three stores and the
// domain directories under the mail names directory. Mail trees and key
// directories are read by their checks, one at a time, so that memory stays
// linear in the number of mail names.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "audit/assign_table.h"
#include "audit/root_links.h"
#include "audit/store_rows.h"
#include "audit/text_file.h"

namespace crelm::audit {

struct LineFile {
    std::string path;
    TextFile file;
    std::vector<std::string> lines;
};

struct ServerSnapshot {
    std::string mailnames_dir;  // "/var/qmail/mailnames" unless configured otherwise
    uid_t popuser_uid = 0;      // 0 when popuser is unknown
    gid_t popuser_gid = 0;

    LineFile rcpthosts;
    LineFile virtualdomains;
    LineFile locals;
    LineFile rejectnonexist;
    TextFile assign_file;
    AssignTable assign;
    bool cdb_exists = false;
    struct stat cdb_info {};

    StoreRows stores;

    // Names of the directories directly under the mail names directory
    // (entries starting with "." left out), sorted.
    std::vector<std::string> domain_dirs;
    TextFile mailnames_dir_state;  // state of the mail names directory itself

    // The configured roots that are symbolic links (see audit/root_links.h).
    std::vector<RootLink> root_links;

    // The host's own names: control/me's line, and the system's host name
    // when it has a dot ("" when there is none).
    TextFile me_file;
    std::string me;
    std::string system_host_name;
};

ServerSnapshot read_server();

}  // namespace crelm::audit
