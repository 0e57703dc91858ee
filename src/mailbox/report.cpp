#include "mailbox/report.h"

#include <ostream>

#include "runtime/error_stream.h"

void mailbox_report(std::string_view text) {
    std::ostream& out = crelm::error_stream();
    out << text;
    if (text.empty() || text.back() != '\n')
        out << '\n';
    out.flush();
}
