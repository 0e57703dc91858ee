// Reading a store without changing anything: no file created, no journal
// rolled back, no owner or mode touched, whoever runs the reader (root
// included). The audit and the mail server's login check read the stores
// this way; the commands, which write, use open_store_db.
#pragma once

#include <string>

#include "stores/sqlite_retry.h"

// The journal beside a store, judged as SQLite judges it but without SQLite
// opening it.
enum class StoreJournal {
    none,   // no journal
    live,   // a writer holds the store and is at work on it
    hot,    // a killed writer's journal: the next writer rolls it back
    stale,  // a journal that nobody holds and that holds nothing
};

StoreJournal store_journal_of(const std::string& path);

// Opens path read-only (never created, never rolled back, never given a new
// owner) with busy_timeout_ms as its busy timeout. SQLITE_OK, or SQLite's
// code with its text in failure.
int open_store_untouched(const std::string& path, int busy_timeout_ms, crelm::SqliteDb& db, std::string& failure);

// Opens path as it stands on disk, with no look at its journal and no lock:
// for a store whose journal is stale, which SQLite would otherwise open.
// SQLITE_OK, or SQLite's code with its text in failure.
int open_store_immutable(const std::string& path, crelm::SqliteDb& db, std::string& failure);
