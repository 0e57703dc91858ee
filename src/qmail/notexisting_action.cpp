// What a domain does with mail for names it does not have.
#include "qmail/mailname_files.h"
#include "qmail/qmail_report.h"
#include "qmail/reject_list.h"

int apply_notexisting_action(const std::string& domain, int action, const std::string& text) {
    switch (action) {
    case kNotexistingBounce:
        return set_bounce(domain, text, RejectCleanup::domain_only);
    case kNotexistingForward:
        return set_catchall(domain, text, RejectCleanup::domain_only);
    case kNotexistingReject:
        // The domain alone; an existing ".qmail-default" stays in place.
        if (crelm::qmail::set_reject_lines({domain}, RejectSwitch::off) != 0)
            return -1;
        return crelm::qmail::set_reject_lines({domain}, RejectSwitch::on);
    default:
        crelm::qmail::log_error("Unrecognized action for notexisting mail names: %d", action);
        return -1;
    }
}
