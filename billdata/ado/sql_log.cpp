#include "billdata/ado/sql_log.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace billdata::ado::sql_log {

namespace {

struct LogFile {
    std::mutex mutex;
    std::string path;  // the file the variable named at the last statement
    std::FILE* file = nullptr;
    bool warned = false;              // the trouble with this file has been told
    std::atomic<bool> in_use{false};  // a path is set (read without the lock)

    ~LogFile() {
        if (file) std::fclose(file);
    }
    void close() {
        if (file) std::fclose(file);
        file = nullptr;
        path.clear();
        in_use.store(false, std::memory_order_release);
        warned = false;
    }
    // Once per file: a support engineer who turned the log on must learn that it stays empty,
    // but the till goes on selling.
    void warn(const char* what, int error) {
        if (warned) return;
        warned = true;
        std::fprintf(stderr,
                     "billdata: cannot %s the statement log %s (%s); statements go unlogged\n",
                     what, path.c_str(), std::strerror(error));
    }
};

LogFile& log_file() {
    static LogFile f;
    return f;
}

}  // namespace

bool wanted() {
    const char* target = std::getenv("BILLDATA_SQL_LOG");
    return (target && *target) || log_file().in_use.load(std::memory_order_acquire);
}

void write(std::string_view statement) {
    const char* target = std::getenv("BILLDATA_SQL_LOG");
    LogFile& log = log_file();
    // Off, and no file left to close: nothing to take the lock for on every statement.
    if ((!target || !*target) && !log.in_use.load(std::memory_order_acquire)) return;
    std::lock_guard lock(log.mutex);
    if (!target || !*target) {
        if (!log.path.empty()) log.close();
        return;
    }
    if (log.path != target) {
        log.close();
        log.path = target;
        log.in_use.store(true, std::memory_order_release);
        log.file = std::fopen(target, "a");
        if (!log.file) log.warn("open", errno);
    }
    if (!log.file) return;
    std::string line;
    line.reserve(statement.size() + 1);
    for (char c : statement) {
        if (c == '\n')
            line += "\\n";
        else if (c == '\r')
            line += "\\r";
        else
            line += c;
    }
    line += '\n';
    // The mutex keeps the lines of several threads whole; the flush keeps the log complete when
    // a till is switched off.
    if (std::fwrite(line.data(), 1, line.size(), log.file) != line.size() ||
        std::fflush(log.file) != 0)
        log.warn("write to", errno);
}

}  // namespace billdata::ado::sql_log
