#include "session/stdin_schema_help.h"

namespace crelm::mail {

std::string_view stdin_schema_sketch() {
    // Kept as documented: the comma after "certfile" and the domain-level
    // quota members, which the reader skips.
    return "{\n"
           "\t\"domain\": {\n"
           "\t\t\"name\": \"string\",\n"
           "\t\t\"mbox_quota\": \"int64 default=-1\",\n"
           "\t\t\"mbox_quota_unit\": \"string default='B' enum='B|KB|MB|GB|TB'\",\n"
           "\t\t\"dom_aliases\": [ \"string\" ],\n"
           "\t\t\"mails\": [\n"
           "\t\t\t{\n"
           "\t\t\t\t\"name\": \"string\",\n"
           "\t\t\t\t\"mbox_quota\": \"int64 default=-1\",\n"
           "\t\t\t\t\"mbox_quota_unit\": \"string default='B' enum='B|KB|MB|GB|TB'\",\n"
           "\t\t\t\t\"aliases\": [ \"string\" ]\n"
           "\t\t\t}\n"
           "\t\t]\n"
           "\t},\n"
           "\t\"certificates\": [\n"
           "\t\t{\n"
           "\t\t\t\"name\": \"string\",\n"
           "\t\t\t\"certfile\": \"string\",\n"
           "\t\t}\n"
           "\t]\n"
           "}";
}

}  // namespace crelm::mail
