// A store's schema as a set of facts (its tables, their columns, indexes and
// triggers), so that a store on the server can be compared with the schema
// that sorvane's own schema batch creates.
#pragma once

#include <sqlite3.h>

#include <set>
#include <string>

namespace crelm::audit {

// One line per fact: "table users", "column users.name VARCHAR(255) NOT
// NULL", "index users_name ON users(name)", "trigger fkd_users_domains_id ON
// domains". Empty with failure set when the schema cannot be read.
struct SchemaFacts {
    std::set<std::string> facts;
    std::string failure;
};

SchemaFacts read_schema_facts(sqlite3* db);

// The facts of the schema that batch creates, built in a database in memory
// (no file is opened).
SchemaFacts expected_schema_facts(const char* batch);

// "" when equal, else "missing <facts>; unexpected <facts>" (either part
// left out when empty).
std::string schema_difference(const SchemaFacts& expected, const SchemaFacts& actual);

}  // namespace crelm::audit
