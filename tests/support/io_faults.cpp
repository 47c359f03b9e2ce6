#include "support/io_faults.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <stdexcept>
#include <string>

namespace billdata::testing::faults {

namespace {

std::array<std::atomic<std::int64_t>, 3> calls{};  // by Target
std::atomic<std::int64_t> commits{0};
std::atomic<int> armed_target{-1};
std::atomic<std::int64_t> armed_nth{0};
std::atomic<int> armed_code{0};
std::atomic<bool> armed_onward{false};
std::atomic<bool> fired{false};
std::atomic<std::int64_t> commits_at_fire{0};

// Counts a call to `t`; true when it is the one to fail.
bool fails(Target t) {
    const int index = static_cast<int>(t);
    const std::int64_t n = ++calls[static_cast<std::size_t>(index)];
    if (armed_target.load() != index) return false;
    if (armed_onward.load() ? n < armed_nth.load() : n != armed_nth.load()) return false;
    if (!fired.exchange(true)) commits_at_fire = commits.load();
    return true;
}

// ---- allocator ----------------------------------------------------------------------------

sqlite3_mem_methods real_mem{};

void* fault_malloc(int n) {
    return fails(Target::Allocation) ? nullptr : real_mem.xMalloc(n);
}
void fault_free(void* p) {
    real_mem.xFree(p);
}
void* fault_realloc(void* p, int n) {
    return fails(Target::Allocation) ? nullptr : real_mem.xRealloc(p, n);
}
int fault_size(void* p) {
    return real_mem.xSize(p);
}
int fault_roundup(int n) {
    return real_mem.xRoundup(n);
}
int fault_init(void* app) {
    return real_mem.xInit(app);
}
void fault_shutdown(void* app) {
    real_mem.xShutdown(app);
}

// ---- file layer ---------------------------------------------------------------------------

sqlite3_vfs* real_vfs = nullptr;
sqlite3_vfs fault_vfs{};

// Our part of a file object; the engine's own file object follows it in the same allocation.
struct FaultFile {
    sqlite3_file base;
    sqlite3_file* real;
    bool log;             // a write-ahead log
    bool commit_pending;  // the header of a commit frame is written, its page not yet
};
// The engine's file object follows ours: keep it aligned.
static_assert(sizeof(FaultFile) % 8 == 0);

sqlite3_file* real_of(sqlite3_file* f) {
    return reinterpret_cast<FaultFile*>(f)->real;
}

// A write-ahead log is a 32-byte header and then frames, each a 24-byte header written on its
// own and then the page. Bytes 4-7 of a frame header (the database size after the commit) are
// non-zero only in the last frame of a transaction: once its page is written too, the
// transaction is committed.
constexpr int kLogHeader = 32;
constexpr int kFrameHeader = 24;

bool commit_frame_header(const void* data, int amount, sqlite3_int64 offset) {
    if (amount != kFrameHeader || offset < kLogHeader) return false;
    const auto* b = static_cast<const unsigned char*>(data);
    return (b[4] | b[5] | b[6] | b[7]) != 0;
}

int f_close(sqlite3_file* f) {
    return real_of(f)->pMethods->xClose(real_of(f));
}
int f_read(sqlite3_file* f, void* data, int amount, sqlite3_int64 offset) {
    return real_of(f)->pMethods->xRead(real_of(f), data, amount, offset);
}
int f_write(sqlite3_file* f, const void* data, int amount, sqlite3_int64 offset) {
    auto* ff = reinterpret_cast<FaultFile*>(f);
    if (fails(Target::Write)) {
        ff->commit_pending = false;
        return armed_code.load();
    }
    const int rc = ff->real->pMethods->xWrite(ff->real, data, amount, offset);
    if (!ff->log) return rc;
    if (rc != SQLITE_OK) {
        ff->commit_pending = false;
    } else if (commit_frame_header(data, amount, offset)) {
        ff->commit_pending = true;
    } else if (ff->commit_pending) {
        ff->commit_pending = false;
        ++commits;
    }
    return rc;
}
int f_truncate(sqlite3_file* f, sqlite3_int64 size) {
    return real_of(f)->pMethods->xTruncate(real_of(f), size);
}
int f_sync(sqlite3_file* f, int flags) {
    if (fails(Target::Sync)) return armed_code.load();
    return real_of(f)->pMethods->xSync(real_of(f), flags);
}
int f_file_size(sqlite3_file* f, sqlite3_int64* size) {
    return real_of(f)->pMethods->xFileSize(real_of(f), size);
}
int f_lock(sqlite3_file* f, int level) {
    return real_of(f)->pMethods->xLock(real_of(f), level);
}
int f_unlock(sqlite3_file* f, int level) {
    return real_of(f)->pMethods->xUnlock(real_of(f), level);
}
int f_check_reserved(sqlite3_file* f, int* out) {
    return real_of(f)->pMethods->xCheckReservedLock(real_of(f), out);
}
int f_file_control(sqlite3_file* f, int op, void* arg) {
    return real_of(f)->pMethods->xFileControl(real_of(f), op, arg);
}
int f_sector_size(sqlite3_file* f) {
    return real_of(f)->pMethods->xSectorSize(real_of(f));
}
int f_device_characteristics(sqlite3_file* f) {
    return real_of(f)->pMethods->xDeviceCharacteristics(real_of(f));
}
int f_shm_map(sqlite3_file* f, int region, int size, int extend, void volatile** out) {
    return real_of(f)->pMethods->xShmMap(real_of(f), region, size, extend, out);
}
int f_shm_lock(sqlite3_file* f, int offset, int n, int flags) {
    return real_of(f)->pMethods->xShmLock(real_of(f), offset, n, flags);
}
void f_shm_barrier(sqlite3_file* f) {
    real_of(f)->pMethods->xShmBarrier(real_of(f));
}
int f_shm_unmap(sqlite3_file* f, int delete_flag) {
    return real_of(f)->pMethods->xShmUnmap(real_of(f), delete_flag);
}
int f_fetch(sqlite3_file* f, sqlite3_int64 offset, int amount, void** out) {
    return real_of(f)->pMethods->xFetch(real_of(f), offset, amount, out);
}
int f_unfetch(sqlite3_file* f, sqlite3_int64 offset, void* p) {
    return real_of(f)->pMethods->xUnfetch(real_of(f), offset, p);
}

// One table per version of the method set, so that the engine never calls through us a method
// that the file underneath does not have.
sqlite3_io_methods methods_of_version(int version) {
    return {version,
            f_close,
            f_read,
            f_write,
            f_truncate,
            f_sync,
            f_file_size,
            f_lock,
            f_unlock,
            f_check_reserved,
            f_file_control,
            f_sector_size,
            f_device_characteristics,
            version >= 2 ? f_shm_map : nullptr,
            version >= 2 ? f_shm_lock : nullptr,
            version >= 2 ? f_shm_barrier : nullptr,
            version >= 2 ? f_shm_unmap : nullptr,
            version >= 3 ? f_fetch : nullptr,
            version >= 3 ? f_unfetch : nullptr};
}
const std::array<sqlite3_io_methods, 3> fault_methods = {
    methods_of_version(1), methods_of_version(2), methods_of_version(3)};

int fault_open(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* f, int flags, int* out_flags) {
    auto* ff = reinterpret_cast<FaultFile*>(f);
    ff->real = reinterpret_cast<sqlite3_file*>(ff + 1);
    ff->log = (flags & SQLITE_OPEN_WAL) != 0;
    ff->commit_pending = false;
    const int rc = real_vfs->xOpen(real_vfs, name, ff->real, flags, out_flags);
    // The engine closes a file whose methods are set even when opening it failed.
    const sqlite3_io_methods* real = ff->real->pMethods;
    f->pMethods =
        real
            ? &fault_methods[static_cast<std::size_t>(std::min(std::max(real->iVersion, 1), 3) - 1)]
            : nullptr;
    return rc;
}

void check(int rc, const char* what) {
    if (rc != SQLITE_OK)
        throw std::runtime_error(std::string(what) + " failed: " + sqlite3_errstr(rc));
}

}  // namespace

void install_allocator() {
    static bool installed = false;
    if (installed) return;
    check(sqlite3_shutdown(), "sqlite3_shutdown");
    check(sqlite3_config(SQLITE_CONFIG_GETMALLOC, &real_mem), "SQLITE_CONFIG_GETMALLOC");
    sqlite3_mem_methods wrapped{fault_malloc,  fault_free, fault_realloc,  fault_size,
                                fault_roundup, fault_init, fault_shutdown, real_mem.pAppData};
    check(sqlite3_config(SQLITE_CONFIG_MALLOC, &wrapped), "SQLITE_CONFIG_MALLOC");
    check(sqlite3_initialize(), "sqlite3_initialize");
    installed = true;
}

void install_vfs() {
    if (real_vfs) return;
    sqlite3_vfs* real = sqlite3_vfs_find(nullptr);
    if (!real) throw std::runtime_error("the engine has no default file layer");
    // Everything but opening goes straight to the engine's own layer, which reads nothing of
    // its own from the object it is called with beyond what is copied here.
    fault_vfs = *real;
    fault_vfs.pNext = nullptr;
    fault_vfs.zName = "billdata-faults";
    fault_vfs.szOsFile = static_cast<int>(sizeof(FaultFile)) + real->szOsFile;
    fault_vfs.xOpen = fault_open;
    real_vfs = real;
    check(sqlite3_vfs_register(&fault_vfs, 1), "sqlite3_vfs_register");
}

Counts counts() {
    Counts c;
    c.writes = calls[static_cast<std::size_t>(Target::Write)];
    c.syncs = calls[static_cast<std::size_t>(Target::Sync)];
    c.allocations = calls[static_cast<std::size_t>(Target::Allocation)];
    c.commits = commits;
    return c;
}

void reset() {
    disarm();
    for (auto& c : calls)
        c = 0;
    commits = 0;
    fired = false;
    commits_at_fire = 0;
}

void arm(Target target, std::int64_t nth, int code) {
    reset();
    armed_code = code;
    armed_nth = nth;
    armed_target = static_cast<int>(target);
}

void arm_onward(Target target, std::int64_t nth, int code) {
    arm(target, nth, code);
    armed_onward = true;
}

void disarm() {
    armed_target = -1;
    armed_nth = 0;
    armed_onward = false;
}

Shot shot() {
    return {fired.load(), commits_at_fire.load()};
}

}  // namespace billdata::testing::faults
