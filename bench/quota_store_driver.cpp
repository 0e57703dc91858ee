// Writing the quotas of 100,000 mailboxes into a fresh quota database, three
// ways: MailboxQuotaDb::setQuotas in one call, a minimal loop that reuses one
// prepared REPLACE, and the sqlite3 program running the same rows in one
// transaction. Run through bench/quota_store_bench.sh, which gives the
// directory for the database files as --dir=<path>.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "stores/mailbox_quota_db.h"

extern char** environ;

namespace {

constexpr int kMailboxes = 100000;
constexpr const char* kDomain = "example.test";
constexpr const char* kReplace = "REPLACE INTO mailbox_quota (domain_name, mailbox_name, quota) VALUES (?, ?, ?)";

std::string& work_dir() {
    static std::string dir = "/tmp";
    return dir;
}

std::string db_path() {
    return work_dir() + "/quota-bench.db";
}

const std::vector<crelm::mail::MailboxQuota>& entries() {
    static const std::vector<crelm::mail::MailboxQuota> list = [] {
        std::vector<crelm::mail::MailboxQuota> made;
        for (int i = 0; i < kMailboxes; ++i)
            made.push_back({"mailbox" + std::to_string(i), 1048576 + i});
        return made;
    }();
    return list;
}

// A fresh database file holding the empty table, made outside the timing.
void fresh_database(benchmark::State& state) {
    state.PauseTiming();
    std::remove(db_path().c_str());
    if (!crelm::mail::MailboxQuotaDb(db_path()).recreate(crelm::mail::KeepOwner::Yes))
        state.SkipWithError("cannot create the quota database");
    state.ResumeTiming();
}

void check(int rc, int expected, sqlite3* db) {
    if (rc != expected)
        throw std::runtime_error(sqlite3_errmsg(db));
}

void BM_SetQuotas(benchmark::State& state) {
    crelm::mail::MailboxQuotaDb store(db_path());
    for (auto _ : state) {
        fresh_database(state);
        if (!store.setQuotas(kDomain, entries(), -1))
            state.SkipWithError("setQuotas failed");
    }
    state.SetItemsProcessed(state.iterations() * kMailboxes);
}

// The least a program can do: one handle, one transaction, one statement.
void minimal_loop() {
    sqlite3* db = nullptr;
    check(sqlite3_open(db_path().c_str(), &db), SQLITE_OK, db);
    check(sqlite3_exec(db, "BEGIN TRANSACTION;", nullptr, nullptr, nullptr), SQLITE_OK, db);
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(db, kReplace, -1, &statement, nullptr), SQLITE_OK, db);
    for (const auto& entry : entries()) {
        const std::string quota = std::to_string(entry.quota) + "B";
        sqlite3_bind_text(statement, 1, kDomain, -1, SQLITE_STATIC);
        sqlite3_bind_text(statement, 2, entry.mailbox.data(), static_cast<int>(entry.mailbox.size()), SQLITE_STATIC);
        sqlite3_bind_text(statement, 3, quota.data(), static_cast<int>(quota.size()), SQLITE_TRANSIENT);
        check(sqlite3_step(statement), SQLITE_DONE, db);
        sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    check(sqlite3_exec(db, "END TRANSACTION;", nullptr, nullptr, nullptr), SQLITE_OK, db);
    sqlite3_close(db);
}

void BM_MinimalLoop(benchmark::State& state) {
    for (auto _ : state) {
        fresh_database(state);
        minimal_loop();
    }
    state.SetItemsProcessed(state.iterations() * kMailboxes);
}

std::string cli_script_path() {
    return work_dir() + "/quota-bench.sql";
}

void write_cli_script() {
    std::ofstream script(cli_script_path());
    script << "BEGIN TRANSACTION;\n";
    for (const auto& entry : entries())
        script << "REPLACE INTO mailbox_quota (domain_name, mailbox_name, quota) VALUES ('" << kDomain << "', '"
               << entry.mailbox << "', '" << entry.quota << "B');\n";
    script << "COMMIT;\n";
}

// sqlite3 <db> < script, waited for.
int run_cli() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, cli_script_path().c_str(), O_RDONLY, 0);
    const std::string db = db_path();
    char* argv[] = {const_cast<char*>("sqlite3"), const_cast<char*>("-batch"), const_cast<char*>(db.c_str()), nullptr};
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, "/usr/bin/sqlite3", &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    if (spawned != 0 || waitpid(pid, &status, 0) != pid)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BM_SqliteCli(benchmark::State& state) {
    write_cli_script();
    for (auto _ : state) {
        fresh_database(state);
        if (run_cli() != 0)
            state.SkipWithError("sqlite3 failed");
    }
    state.SetItemsProcessed(state.iterations() * kMailboxes);
}

BENCHMARK(BM_SetQuotas)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MinimalLoop)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SqliteCli)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], "--dir=", 6) == 0)
            work_dir() = argv[i] + 6;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
