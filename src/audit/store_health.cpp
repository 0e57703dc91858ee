#include "audit/store_checks.h"
#include "audit/store_schema.h"

namespace crelm::audit {

namespace {

// SQLite's integrity check lists every problem it finds; the first few say
// enough, and the list of a badly damaged store has no end worth reading.
constexpr const char* kIntegrityCheck = "PRAGMA integrity_check(3)";

void check_integrity(const AuditContext& context, const StoreRead& store) {
    std::vector<std::string> problems;
    std::string failure;
    const int code = for_each_row(store.db.get(), kIntegrityCheck, [&](sqlite3_stmt* s) {
        const unsigned char* text = sqlite3_column_text(s, 0);
        problems.emplace_back(text == nullptr ? "" : reinterpret_cast<const char*>(text));
    }, failure);
    if (code != SQLITE_DONE) {
        context.findings.add(Severity::error, "store-integrity-failed", store.path,
                             "SQLite's integrity check could not run: " + failure);
        return;
    }
    if (problems.size() == 1 && problems.front() == "ok")
        return;
    std::string detail;
    for (const std::string& problem : problems)
        detail += (detail.empty() ? "" : "; ") + problem;
    for (char& c : detail)
        if (c == '\n')
            c = ' ';
    context.findings.add(Severity::error, "store-integrity-failed", store.path, "SQLite's integrity check: " + detail);
}

void check_schema(const AuditContext& context, const StoreRead& store, const char* batch) {
    const SchemaFacts expected = expected_schema_facts(batch);
    const SchemaFacts actual = read_schema_facts(store.db.get());
    if (!actual.failure.empty()) {
        context.findings.add(Severity::error, "store-schema-differs", store.path,
                             "the schema cannot be read: " + actual.failure);
        return;
    }
    const std::string difference = schema_difference(expected, actual);
    if (!difference.empty())
        context.findings.add(Severity::error, "store-schema-differs", store.path,
                             "not the schema sorvane creates: " + difference);
}

}  // namespace

void check_store_health(const AuditContext& context, const StoreRead& store, const char* batch) {
    if (!store.exists) {
        context.findings.add(Severity::error, "store-missing", store.path,
                             "the store is missing: every command that uses it fails");
        return;
    }
    if (store.code == SQLITE_READONLY_ROLLBACK) {
        context.findings.add(Severity::error, "store-hot-journal", store.path,
                             "a killed writer left its journal (" + store.path +
                                 "-journal): the store cannot be read until a writer rolls it back");
        return;
    }
    if (!store.failure.empty() || !store.db) {
        context.findings.add(Severity::error, "store-unreadable", store.path, store.failure);
        return;
    }
    check_integrity(context, store);
    check_schema(context, store, batch);
}

}  // namespace crelm::audit
