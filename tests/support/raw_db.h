#pragma once
// A database file opened straight on the engine, past the data layer, with the runtime's
// functions and collations registered (the tables declare them): for setting up what the data
// layer cannot write, and for reading what it must have written.

#include <sqlite3.h>

#include <string>
#include <vector>

namespace billdata::testing {

class RawDb {
  public:
    // Opens `path` for reading and writing (creating it when `create`); std::runtime_error when
    // the engine refuses.
    explicit RawDb(const std::string& path, bool create = false);
    ~RawDb();
    RawDb(const RawDb&) = delete;
    RawDb& operator=(const RawDb&) = delete;

    sqlite3* handle() const { return db_; }

    // Runs statements; returns the engine's message, empty on success.
    std::string try_exec(const std::string& sql) const;
    // Runs statements; std::runtime_error with the engine's message and the text on failure.
    void exec(const std::string& sql) const;
    // The first column of the first row (0, 0.0 or "" when there is no row or it is null).
    long long integer(const std::string& sql) const;
    double real(const std::string& sql) const;
    std::string text(const std::string& sql) const;
    // The rows of a query as "a|b|c|" texts ("NULL" for a null), sorted, without the columns
    // that hold the moment of saving (FSysTime, FEditTime: they differ from one run to the next).
    std::vector<std::string> rows(const std::string& sql) const;

  private:
    sqlite3_stmt* prepare(const std::string& sql) const;
    [[noreturn]] void fail(const std::string& sql) const;
    sqlite3* db_ = nullptr;
};

}  // namespace billdata::testing
