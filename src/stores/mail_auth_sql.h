// The statements of the mail authentication store, byte for byte: the mail
// server reads this schema, and existing databases carry it, irregular blanks
// and trigger messages included.
#pragma once

namespace mail_auth_sql {

inline constexpr const char* kSchema =
    "BEGIN TRANSACTION;"
    "CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, "
    "status INTEGER NOT NULL DEFAULT 0);"
    "CREATE INDEX domains_name ON domains(name);"
    "CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW BEGIN    "
    "DELETE FROM users WHERE dom_id = OLD.id;  END;"
    "CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT NULL, "
    "name         VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN VARCHAR(255), "
    "status INT NOT NULL DEFAULT 0, UNIQUE(name, dom_id));"
    "CREATE INDEX users_name ON users(name);"
    "CREATE INDEX users_dom_id ON users(dom_id);"
    "CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN    "
    "SELECT RAISE(ROLLBACK, 'insert on table \"users\" violates foreign key constraint \"fk_domains_id\"')    "
    "WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;"
    "CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN    "
    "SELECT RAISE(ROLLBACK, 'update on table \"users\" violates foreign key constraint \"fk_domains_id\"')    "
    "WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;"
    "COMMIT;";

inline constexpr const char* kSelectDomainId = "SELECT id FROM domains WHERE name=LOWER(?)";
inline constexpr const char* kInsertDomain = "INSERT INTO domains (name, status) VALUES(LOWER(?), ?)";
inline constexpr const char* kSelectDomain = "SELECT id, status FROM domains WHERE name=LOWER(?)";
inline constexpr const char* kUpdateDomainStatus = "UPDATE domains SET status=? WHERE name=LOWER(?)";
inline constexpr const char* kRenameDomain = "UPDATE domains SET name=LOWER(?) WHERE name=LOWER(?)";
inline constexpr const char* kDeleteDomain = "DELETE FROM domains WHERE name=LOWER(?)";

inline constexpr const char* kInsertUser =
    "INSERT OR REPLACE INTO users (name, userPassword, status, dom_id) VALUES (LOWER(?), ?, ?, ?)";
inline constexpr const char* kInsertUserStoredPassword =
    "INSERT OR REPLACE INTO users (name, cmusaslsecretPLAIN, status, dom_id) VALUES (LOWER(?), ?, ?, ?)";
inline constexpr const char* kDeleteUser = "DELETE FROM users WHERE name=LOWER(?) AND dom_id=?";
inline constexpr const char* kRenameUser = "UPDATE users SET name=LOWER(?) WHERE name=LOWER(?) AND dom_id=?";
inline constexpr const char* kSelectUser =
    "SELECT name, userPassword, cmusaslsecretPLAIN, status FROM users WHERE dom_id=? AND name=LOWER(?)";
inline constexpr const char* kSelectUserPassword =
    "SELECT u.userPassword AS password, u.cmusaslsecretPLAIN AS encPassword, u.status AS userDisabled, "
    "d.status AS domainDisabled FROM users AS u, domains AS d WHERE u.dom_id = d.id AND u.name=LOWER(?) "
    "AND d.name=LOWER(?)";

// The listing is this text, then kListUsersOfName when a mail name is given,
// then kListUsersOrder.
inline constexpr const char* kListUsers =
    "SELECT u.name || '@' || d.name as mailAddress, u.userPassword AS password, "
    "u.cmusaslsecretPLAIN AS encPassword, u.status AS userDisabled, d.status AS domainDisabled "
    "FROM users AS u, domains AS d WHERE u.dom_id = d.id";
inline constexpr const char* kListUsersOfName = " AND u.name=LOWER(?)";
inline constexpr const char* kListUsersOrder = " ORDER BY d.name, u.name";

}  // namespace mail_auth_sql
