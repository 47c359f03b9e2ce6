#include "billdata/ado/sql_log.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>

namespace billdata::ado::sql_log {

namespace {

struct LogFile {
    std::mutex mutex;
    std::string path;
    std::FILE* file = nullptr;

    ~LogFile() {
        if (file) std::fclose(file);
    }
};

LogFile& log_file() {
    static LogFile f;
    return f;
}

}  // namespace

void write(std::string_view statement) {
    const char* target = std::getenv("BILLDATA_SQL_LOG");
    LogFile& log = log_file();
    std::lock_guard lock(log.mutex);
    if (!target || !*target) {
        if (log.file) {
            std::fclose(log.file);
            log.file = nullptr;
            log.path.clear();
        }
        return;
    }
    if (!log.file || log.path != target) {
        if (log.file) std::fclose(log.file);
        log.file = std::fopen(target, "a");
        log.path = log.file ? target : "";
        if (!log.file) return;
    }
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
    std::fwrite(line.data(), 1, line.size(), log.file);
    std::fflush(log.file);
}

}  // namespace billdata::ado::sql_log
