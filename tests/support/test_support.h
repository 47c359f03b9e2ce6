#pragma once
// Shared test helpers: a scratch folder per test that is removed afterwards, and the statement
// corpus.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "billdata/ado/com_error.h"

namespace billdata::testing {

// A fresh empty directory under the system's temporary folder; removed with its contents when
// the object goes.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Path of a file inside the directory, as text.
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

// The error `fn` raises; a ComError with number 0 when it raises nothing.
ado::ComError error_of(const std::function<void()>& fn);
// Whether an error's description holds `text`.
inline bool mentions(const ado::ComError& e, const std::string& text) {
    return e.description().find(text) != std::string::npos;
}

// Resident memory of this process in bytes.
long resident_bytes();

// The statements of tests/data/statements.sql, one per line, comments left out.
std::vector<std::string> load_statement_corpus();

}  // namespace billdata::testing
