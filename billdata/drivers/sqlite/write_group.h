#pragma once
// Write groups: statements that a connection runs outside a transaction of its caller, gathered
// under one write transaction that the driver opens and commits by itself (see sqlite_driver.h
// for the rules). One WriteGroup belongs to each physical handle; the process keeps a registry
// of the open ones, so that another connection of the same file, a busy wait or the timer can
// commit a group whose owner is idle.

#include <sqlite3.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

namespace billdata::drivers::sqlite {

using GroupClock = std::chrono::steady_clock;

struct WriteGroup : std::enable_shared_from_this<WriteGroup> {
    // Held while the handle runs anything (a statement, a step of a cursor, a procedure, a
    // transaction command), and by whoever commits the group from outside its session.
    std::recursive_mutex use;
    sqlite3* db = nullptr;
    dev_t dev = 0;
    ino_t ino = 0;
    int busy_ms = 0;  // how long a statement of this handle waits for a lock
    GroupClock::time_point busy_since;

    // Written under `use`. Only the owning session opens a group, and whoever commits one from
    // outside stores false only after its last call on the handle: so the owner, reading false,
    // knows that no other thread touches the handle until it opens a group again, and may step a
    // cursor without taking `use`.
    std::atomic<bool> open{false};
    GroupClock::time_point deadline;
    // A commit made from outside the session failed (its work is lost, as on a power cut): the
    // session raises it at its next call, so that the caller hears of it.
    int failed = SQLITE_OK;

    // BEGIN IMMEDIATE, COMMIT and ROLLBACK, each prepared once per handle (see run_command);
    // finalised with the handle.
    sqlite3_stmt* commands[3] = {nullptr, nullptr, nullptr};
};

enum class TransactionCommand { Begin, Commit, Rollback };

// Runs one transaction command on the group's handle (the caller holds `use`) with a statement
// kept prepared for it. Returns the engine's result; the handle's error message tells why.
int run_command(WriteGroup& g, TransactionCommand command);

// Lets the prepared commands go (before the handle closes).
void finalize_commands(WriteGroup& g);

// Opens a group on the handle (the caller holds `use`; no transaction is open): BEGIN IMMEDIATE,
// to be committed `window` from now at the latest. Returns the engine's result.
int open_group(WriteGroup& g, std::chrono::milliseconds window);

// Commits the handle's group if one is open (the caller holds `use`). Returns the engine's
// result; when the commit fails, the group's work is rolled back.
int commit_group(WriteGroup& g);

// The engine ended the group's transaction itself (an I/O error, a full disk, an interrupt):
// it is no longer open (the caller holds `use`).
void drop_group(WriteGroup& g);

// Commits the groups of the other handles of this process on the same file as `self`, waiting
// for a handle that is running something now. The caller holds no group's `use`.
void settle_file(const WriteGroup& self);

// The busy handler of every handle (argument: its WriteGroup): commits the groups of idle
// handles of this process on the same file, then waits as the busy timeout says.
int wait_for_lock(void* group, int count);

// Commits every group open in this process.
void commit_all_groups();

}  // namespace billdata::drivers::sqlite
