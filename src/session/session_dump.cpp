// The debug dump of the session data. Its irregular indentation is the
// established format and is kept.

#include "session/session_mail_data.h"

using crelm::mail::SessionMailData;

namespace {

const char* shown(const char* text) { return text != nullptr ? text : "(null)"; }

const char* comma_unless_last(std::size_t index, std::size_t count) { return index + 1 < count ? "," : ""; }

void dump_list(std::FILE* out, const std::vector<char*>& list) {
    std::fputs("[ ", out);
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::fprintf(out, "\"%s\"%s", shown(list[i]), i + 1 < list.size() ? ", " : "");
    }
    std::fputs(" ]", out);
}

void dump_mails(std::FILE* out, const SessionMailData& data) {
    for (std::size_t i = 0; i < data.mails.size(); ++i) {
        const crelm::mail::SessionMail& mail = data.mails[i];
        std::fputs("      {\n", out);
        std::fprintf(out, "        \"name\": \"%s\",\n", shown(mail.name));
        std::fprintf(out, "        \"mbox_quota\": %ld,\n", static_cast<long>(mail.mbox_quota));
        std::fputs("        \"aliases\": ", out);
        dump_list(out, mail.aliases);
        std::fprintf(out, "\n  }%s\n", comma_unless_last(i, data.mails.size()));
    }
}

void dump_certificates(std::FILE* out, const SessionMailData& data) {
    for (std::size_t i = 0; i < data.certificates.size(); ++i) {
        const crelm::mail::SessionCertificate& certificate = data.certificates[i];
        std::fputs("  {\n", out);
        std::fprintf(out, "    \"name\": \"%s\",\n", shown(certificate.name));
        std::fprintf(out, "    \"certfile\": \"%s\",\n", shown(certificate.certfile));
        std::fprintf(out, "  }%s\n", comma_unless_last(i, data.certificates.size()));
    }
}

}  // namespace

void dump_session_mail_data(std::FILE* stream, const SessionMailData* data) {
    std::FILE* out = stream != nullptr ? stream : stderr;
    if (data == nullptr) {
        std::fputs("mail_db_data_t = (null)\n", out);
        return;
    }
    std::fputs("mail_db_data_t = {\n  \"domain\": {\n", out);
    std::fprintf(out, "    \"name\": \"%s\",\n", shown(data->domain_name));
    std::fputs("    \"dom_aliases\": ", out);
    dump_list(out, data->domain_aliases);
    std::fputs(",\n    \"mails\": [\n", out);
    dump_mails(out, *data);
    std::fputs("    ]\n  },\n  \"certificates\": [\n", out);
    dump_certificates(out, *data);
    std::fputs("  ]\n}\n", out);
}
