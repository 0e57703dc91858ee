#include "audit/store_schema.h"

#include <vector>

#include "audit/store_rows.h"
#include "stores/sqlite_retry.h"

namespace crelm::audit {

namespace {

std::string text_of(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text));
}

// A name as an SQL string literal.
std::string literal(const std::string& name) {
    std::string quoted = "'";
    for (char c : name)
        quoted += c == '\'' ? std::string("''") : std::string(1, c);
    return quoted + "'";
}

bool add_columns(sqlite3* db, const std::string& table, SchemaFacts& schema) {
    const std::string sql =
        "SELECT name, type, \"notnull\", dflt_value, pk FROM pragma_table_info(" + literal(table) + ")";
    return for_each_row(db, sql.c_str(), [&](sqlite3_stmt* s) {
               std::string fact = "column " + table + "." + text_of(s, 0) + " " + text_of(s, 1);
               if (sqlite3_column_int(s, 2) != 0)
                   fact += " NOT NULL";
               if (sqlite3_column_type(s, 3) != SQLITE_NULL)
                   fact += " DEFAULT " + text_of(s, 3);
               if (sqlite3_column_int(s, 4) != 0)
                   fact += " PRIMARY KEY " + std::to_string(sqlite3_column_int(s, 4));
               schema.facts.insert(fact);
           }, schema.failure) == SQLITE_DONE;
}

bool add_indexes(sqlite3* db, const std::string& table, SchemaFacts& schema) {
    struct Index {
        std::string name;
        bool unique;
    };
    std::vector<Index> indexes;
    const std::string list = "SELECT name, \"unique\" FROM pragma_index_list(" + literal(table) + ")";
    if (for_each_row(db, list.c_str(), [&](sqlite3_stmt* s) {
            indexes.push_back({text_of(s, 0), sqlite3_column_int(s, 1) != 0});
        }, schema.failure) != SQLITE_DONE)
        return false;
    for (const Index& index : indexes) {
        std::string columns;
        const std::string info = "SELECT name FROM pragma_index_info(" + literal(index.name) + ") ORDER BY seqno";
        if (for_each_row(db, info.c_str(), [&](sqlite3_stmt* s) {
                columns += (columns.empty() ? "" : ",") + text_of(s, 0);
            }, schema.failure) != SQLITE_DONE)
            return false;
        schema.facts.insert("index " + index.name + " ON " + table + "(" + columns + ")" +
                            (index.unique ? " UNIQUE" : ""));
    }
    return true;
}

std::string joined(const std::vector<std::string>& facts) {
    std::string text;
    for (const std::string& fact : facts)
        text += (text.empty() ? "" : ", ") + fact;
    return text;
}

}  // namespace

SchemaFacts read_schema_facts(sqlite3* db) {
    SchemaFacts schema;
    std::vector<std::string> tables;
    if (for_each_row(db, "SELECT type, name, tbl_name FROM sqlite_master WHERE type IN ('table', 'trigger')",
                     [&](sqlite3_stmt* s) {
                         const std::string type = text_of(s, 0);
                         if (type == "table") {
                             tables.push_back(text_of(s, 1));
                             schema.facts.insert("table " + tables.back());
                         } else {
                             schema.facts.insert("trigger " + text_of(s, 1) + " ON " + text_of(s, 2));
                         }
                     },
                     schema.failure) != SQLITE_DONE)
        return schema;
    for (const std::string& table : tables)
        if (!add_columns(db, table, schema) || !add_indexes(db, table, schema))
            break;
    if (!schema.failure.empty())
        schema.facts.clear();
    return schema;
}

SchemaFacts expected_schema_facts(const char* batch) {
    SchemaFacts schema;
    sqlite3* handle = nullptr;
    const int code = sqlite3_open_v2(":memory:", &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY, nullptr);
    crelm::SqliteDb db;
    db.reset(handle);
    if (code != SQLITE_OK) {
        schema.failure = handle != nullptr ? sqlite3_errmsg(handle) : sqlite3_errstr(code);
        return schema;
    }
    // Whatever SQLite would spill stays in memory too.
    char* message = nullptr;
    if (sqlite3_exec(handle, "PRAGMA temp_store=MEMORY", nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_exec(handle, batch, nullptr, nullptr, &message) != SQLITE_OK) {
        schema.failure = message != nullptr ? message : sqlite3_errmsg(handle);
        sqlite3_free(message);
        return schema;
    }
    return read_schema_facts(handle);
}

std::string schema_difference(const SchemaFacts& expected, const SchemaFacts& actual) {
    std::vector<std::string> missing;
    std::vector<std::string> unexpected;
    for (const std::string& fact : expected.facts)
        if (actual.facts.count(fact) == 0)
            missing.push_back(fact);
    for (const std::string& fact : actual.facts)
        if (expected.facts.count(fact) == 0)
            unexpected.push_back(fact);
    std::string text;
    if (!missing.empty())
        text = "missing " + joined(missing);
    if (!unexpected.empty())
        text += (text.empty() ? "" : "; ") + std::string("unexpected ") + joined(unexpected);
    return text;
}

}  // namespace crelm::audit
