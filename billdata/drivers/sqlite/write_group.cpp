#include "billdata/drivers/sqlite/write_group.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <thread>
#include <vector>

namespace billdata::drivers::sqlite {

namespace {

// The open groups of the process. A timer thread, started with the first group, commits a
// group whose owner has left it idle past its deadline: a process that writes nothing more must
// not keep other processes from the file longer than the window.
struct Registry {
    std::mutex mutex;
    std::condition_variable changed;
    struct Entry {
        std::shared_ptr<WriteGroup> group;
        GroupClock::time_point deadline;
    };
    std::vector<Entry> open;
    std::atomic<std::size_t> count{0};
    bool timer_started = false;
    // When the timer wakes by itself (max: only when told). A group whose deadline is later
    // needs no wake-up: the timer looks again by then. So a process saving sale after sale
    // wakes it about once per window, not once per group.
    GroupClock::time_point wakes_at = GroupClock::time_point::max();
    std::uint64_t opened = 0;       // groups opened so far
    GroupClock::duration window{};  // the last one's window
};

Registry& registry() {
    // Never destroyed: the timer thread may still wait on it while the process exits.
    static Registry* r = new Registry;
    return *r;
}

void forget(Registry& r, const WriteGroup& g) {
    std::lock_guard lock(r.mutex);
    auto it = std::find_if(r.open.begin(), r.open.end(),
                           [&](const Registry::Entry& e) { return e.group.get() == &g; });
    if (it == r.open.end()) return;
    r.open.erase(it);
    r.count.store(r.open.size(), std::memory_order_relaxed);
}

// Commits a group from outside its session (the caller holds its `use`).
void commit_from_outside(WriteGroup& g) {
    if (!g.open) return;
    const int rc = commit_group(g);
    if (rc != SQLITE_OK && g.failed == SQLITE_OK) g.failed = rc;
}

void run_timer() {
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    std::uint64_t seen = 0;  // r.opened at the last look
    for (;;) {
        if (r.open.empty()) {
            if (r.opened != seen) {
                // Groups came and went since the last look: a busy process's groups most often
                // close before this thread is even scheduled. Look again a window later, so that
                // the next ones, due later, need not wake it.
                seen = r.opened;
                r.wakes_at = GroupClock::now() + r.window;
                r.changed.wait_until(lock, r.wakes_at);
            } else {
                r.wakes_at = GroupClock::time_point::max();
                r.changed.wait(lock);
            }
            continue;
        }
        auto first = std::min_element(r.open.begin(), r.open.end(),
                                      [](const Registry::Entry& a, const Registry::Entry& b) {
                                          return a.deadline < b.deadline;
                                      });
        const auto now = GroupClock::now();
        if (now < first->deadline) {
            r.wakes_at = first->deadline;
            r.changed.wait_until(lock, first->deadline);
            continue;
        }
        std::shared_ptr<WriteGroup> g = first->group;
        lock.unlock();
        bool done = false;
        {
            // A handle running a statement now is not waited for: it checks its deadline itself
            // at its next call, and the timer tries again a moment later.
            std::unique_lock use(g->use, std::try_to_lock);
            if (use.owns_lock()) {
                if (g->open && GroupClock::now() >= g->deadline) commit_from_outside(*g);
                done = true;
            }
        }
        lock.lock();
        if (!done) {
            r.wakes_at = GroupClock::now() + std::chrono::milliseconds(1);
            r.changed.wait_until(lock, r.wakes_at);
        }
    }
}

// The other handles' open groups on the same file.
std::vector<std::shared_ptr<WriteGroup>> others_on_file(const WriteGroup& self) {
    Registry& r = registry();
    std::vector<std::shared_ptr<WriteGroup>> out;
    std::lock_guard lock(r.mutex);
    for (const Registry::Entry& e : r.open)
        if (e.group.get() != &self && e.group->dev == self.dev && e.group->ino == self.ino)
            out.push_back(e.group);
    return out;
}

}  // namespace

int run_command(WriteGroup& g, TransactionCommand command) {
    static constexpr const char* kText[] = {"BEGIN IMMEDIATE", "COMMIT", "ROLLBACK"};
    const auto k = static_cast<std::size_t>(command);
    sqlite3_stmt*& stmt = g.commands[k];
    if (!stmt) {
        const int rc = sqlite3_prepare_v2(g.db, kText[k], -1, &stmt, nullptr);
        if (rc != SQLITE_OK) return rc;
    }
    int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) rc = SQLITE_OK;
    // The statement's own error stays the handle's message until the next call on it; a reset
    // statement holds nothing.
    sqlite3_reset(stmt);
    return rc;
}

void finalize_commands(WriteGroup& g) {
    for (sqlite3_stmt*& stmt : g.commands) {
        sqlite3_finalize(stmt);
        stmt = nullptr;
    }
}

int open_group(WriteGroup& g, std::chrono::milliseconds window) {
    const int rc = run_command(g, TransactionCommand::Begin);
    if (rc != SQLITE_OK) return rc;
    g.open = true;
    g.deadline = GroupClock::now() + window;
    Registry& r = registry();
    bool wake = false;
    {
        std::lock_guard lock(r.mutex);
        r.open.push_back({g.shared_from_this(), g.deadline});
        r.count.store(r.open.size(), std::memory_order_relaxed);
        ++r.opened;
        r.window = window;
        if (!r.timer_started) {
            r.timer_started = true;
            std::thread(run_timer).detach();
        }
        wake = g.deadline < r.wakes_at;
    }
    if (wake) r.changed.notify_one();
    return SQLITE_OK;
}

int commit_group(WriteGroup& g) {
    if (!g.open) return SQLITE_OK;
    forget(registry(), g);
    int rc = run_command(g, TransactionCommand::Commit);
    if (rc != SQLITE_OK && !sqlite3_get_autocommit(g.db))
        run_command(g, TransactionCommand::Rollback);
    g.open = false;  // after the last call on the handle (see WriteGroup::open)
    return rc;
}

void drop_group(WriteGroup& g) {
    if (!g.open) return;
    g.open = false;
    forget(registry(), g);
}

void settle_file(const WriteGroup& self) {
    if (registry().count.load(std::memory_order_relaxed) == 0) return;
    for (const auto& g : others_on_file(self)) {
        std::lock_guard use(g->use);
        commit_from_outside(*g);
    }
}

int wait_for_lock(void* arg, int count) {
    WriteGroup& self = *static_cast<WriteGroup*>(arg);
    const auto now = GroupClock::now();
    if (count == 0) self.busy_since = now;
    // A group of an idle handle of this process holds the lock: commit it and try again at once.
    // A handle that is running something is left alone (it may be this very thread's).
    bool freed = false;
    if (registry().count.load(std::memory_order_relaxed) != 0) {
        for (const auto& g : others_on_file(self)) {
            std::unique_lock use(g->use, std::try_to_lock);
            if (use.owns_lock() && g->open) {
                commit_from_outside(*g);
                freed = true;
            }
        }
    }
    if (freed) return 1;
    const auto waited =
        std::chrono::duration_cast<std::chrono::milliseconds>(now - self.busy_since).count();
    if (waited >= self.busy_ms) return 0;
    // Short sleeps first: the holder is most often a group of another process, which lets go
    // within its window.
    static constexpr int kSteps[] = {1, 1, 2, 2, 5, 5, 10};
    const int step =
        kSteps[std::min<std::size_t>(static_cast<std::size_t>(count), std::size(kSteps) - 1)];
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::min<long long>(step, self.busy_ms - waited)));
    return 1;
}

void commit_all_groups() {
    Registry& r = registry();
    if (r.count.load(std::memory_order_relaxed) == 0) return;
    std::vector<std::shared_ptr<WriteGroup>> all;
    {
        std::lock_guard lock(r.mutex);
        for (const Registry::Entry& e : r.open)
            all.push_back(e.group);
    }
    for (const auto& g : all) {
        std::lock_guard use(g->use);
        commit_from_outside(*g);
    }
}

}  // namespace billdata::drivers::sqlite
