// Configured roots that are symbolic links (audit/root_links.h): one that
// only root can redirect is followed and reported as a notice, so that the
// operator knows where the mail is read from; any other is an error for a
// person, since sorvane follows every link that root owns.
#include "audit/checks.h"

namespace crelm::audit {

void check_root_links(const AuditContext& context) {
    if (!context.scope.whole_server())
        return;
    for (const RootLink& link : context.server.root_links) {
        if (link.state == RootLinkState::trusted)
            context.findings.add(Severity::notice, "root-link-followed", link.path,
                                 "a symbolic link to " + link.target +
                                     ", root's, to a directory no one else can change: followed, as sorvane "
                                     "follows it");
        else
            context.findings.add(Severity::error, "root-link-unsafe", link.path,
                                 "a symbolic link to " + link.target + " that " + link.why +
                                     (link.state == RootLinkState::foreign
                                          ? ": sorvane refuses it, and neither program reads through it"
                                          : ": whoever can change it decides what sorvane reads and writes"));
    }
}

}  // namespace crelm::audit
