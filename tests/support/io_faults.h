#pragma once
// Injected I/O and memory faults for tests of what a failing disk or a full memory does to the
// component: a file layer wrapped around the engine's default one, and a wrapper around the
// engine's allocator. Both pass every call through and count writes, syncs and allocations;
// armed, they fail exactly one call, counted from the moment they were armed.
//
// The file layer is made the process's default, so every connection the library opens after
// install_vfs() goes through it with no change to the library. The allocator can only be
// swapped while the engine is shut down: install_allocator() belongs at the very start of a
// test program's main, before anything opens a database.
//
// Not meant for several threads arming faults at once; counting is safe from any thread.

#include <cstdint>

namespace billdata::testing::faults {

enum class Target { Write, Sync, Allocation };

// Wraps the engine's allocator. Shuts the engine down and starts it again, so no connection may
// be open yet; raises std::runtime_error if the engine refuses. Idempotent.
void install_allocator();

// Registers the fault file layer as the default one. Connections opened before keep the file
// layer they were opened with. Idempotent.
void install_vfs();

struct Counts {
    std::int64_t writes = 0;       // xWrite calls on any file
    std::int64_t syncs = 0;        // xSync calls on any file
    std::int64_t allocations = 0;  // allocations and reallocations asked of the allocator
    // Commit records wholly written to a write-ahead log: once one is, the transaction it ends
    // stands (and is seen by every later reader) whatever fails afterwards.
    std::int64_t commits = 0;
};

// The calls since the last reset() or arm().
Counts counts();

// Zeroes the counts and disarms.
void reset();

// Zeroes the counts and arms one fault: the `nth` call (from 1) to `target` fails, the calls
// before and after it pass through. A write fails with `code` (SQLITE_IOERR_WRITE, SQLITE_FULL,
// …) without reaching the file, a sync with `code` (SQLITE_IOERR_FSYNC, …), an allocation by
// returning null (`code` unused).
void arm(Target target, std::int64_t nth, int code);

// As arm(), but the `nth` call and every later one fail until disarm(): memory or a disk that
// stays gone, so that whatever the library does to clean up fails as well.
void arm_onward(Target target, std::int64_t nth, int code);

// Disarms, leaving the counts and what happened to the fault as they are.
void disarm();

// What became of the fault armed last.
struct Shot {
    bool fired = false;
    std::int64_t commits_before = 0;  // commit records wholly written before it fired
};
Shot shot();

}  // namespace billdata::testing::faults
