// The statements of the mail handlers store, byte for byte as existing
// databases and the mail server's handler runner expect them.
#pragma once

namespace mail_handlers_sql {

// The constraint name's spelling is carried by every existing database.
inline constexpr const char* kSchema =
    "BEGIN TRANSACTION;"
    "CREATE TABLE handlers (queue INTEGER, type INTEGER, enabled BOOLEAN, priority INTEGER, "
    "name VARCHAR(255) NOT NULL, address VARCHAR(2048) NOT NULL, executable VARCHAR(2048) NOT NULL, "
    "context VARCHAR(2048) NOT NULL, protected BOOLEAN NOT NULL default 0, "
    "CONSTRAINT uniq_entries_constaraint PRIMARY KEY (queue, type, name, address));"
    "CREATE INDEX idx1 ON handlers(queue, type, enabled, address);"
    "CREATE INDEX idx2 ON handlers(queue, type, enabled, address, priority);"
    "CREATE INDEX idx3 ON handlers(name, queue, type, address);"
    "CREATE INDEX idx4 ON handlers(name, queue, type);"
    "COMMIT;";

inline constexpr const char* kInsert =
    "INSERT OR REPLACE INTO handlers(priority, name, type, address, queue, executable, context, protected, enabled) "
    "VALUES(?, ?, ?, LOWER(?), ?, ?, ?, ?, ?)";

// A copy of one row under another address, every column kept as stored.
inline constexpr const char* kCloneRow =
    "INSERT OR REPLACE INTO handlers(queue, type, enabled, priority, name, address, executable, context, protected) "
    "SELECT queue, type, enabled, priority, name, LOWER(?), executable, context, protected FROM handlers "
    "WHERE address=? AND name=? AND type=? AND queue=?";

// Deletes by address compare regardless of case on both sides: addresses are
// stored lower case, but a row may have been given another case by a rename
// or by another writer.
inline constexpr const char* kDeleteByNameTypeQueue = "DELETE FROM handlers WHERE name=? AND type=? AND queue=?";
inline constexpr const char* kDeleteByNameTypeAddressQueue =
    "DELETE FROM handlers WHERE name=? AND type=? AND LOWER(address)=LOWER(?) AND queue=?";
inline constexpr const char* kDeleteByAddress = "DELETE FROM handlers WHERE LOWER(address)=LOWER(?)";
inline constexpr const char* kDeleteByName = "DELETE FROM handlers WHERE name=?";

inline constexpr const char* kSelectByAddress =
    "SELECT priority, type, queue, name, address, executable, context, enabled FROM handlers WHERE address = ?";
inline constexpr const char* kSelectContaining =
    "SELECT priority, type, queue, name, address, executable, context, enabled FROM handlers "
    "WHERE address LIKE '%' || ? || '%'";
inline constexpr const char* kSelectByAddressShort =
    "SELECT priority, type, queue, name, executable, context, enabled FROM handlers WHERE address=?";
inline constexpr const char* kSelectContainingShort =
    "SELECT priority, type, queue, name, executable, context, enabled, address FROM handlers "
    "WHERE address LIKE '%' || ? || '%'";
inline constexpr const char* kSelectToRun =
    "SELECT executable, context, name FROM handlers WHERE queue=? AND type=? AND enabled=? AND address=? "
    "ORDER BY priority DESC";

inline constexpr const char* kUpdateEnabled =
    "UPDATE OR REPLACE handlers SET enabled=? WHERE name=? AND type=? AND queue=?";
inline constexpr const char* kUpdateEnabledForAddress =
    "UPDATE OR REPLACE handlers SET enabled=? WHERE name=? AND type=? AND queue=? AND address=?";
inline constexpr const char* kUpdateEnabledByName = "UPDATE OR REPLACE handlers SET enabled=? WHERE name=?";
inline constexpr const char* kRenameAddress = "UPDATE OR REPLACE handlers SET address=? WHERE address=?";

}  // namespace mail_handlers_sql
