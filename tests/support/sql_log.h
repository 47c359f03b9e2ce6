#pragma once
// The statement log (BILLDATA_SQL_LOG) pointed at a file of the test's own while an object lives.

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace billdata::testing {

// The lines of a text file (none when it is not there).
inline std::vector<std::string> file_lines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> out;
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// Sets BILLDATA_SQL_LOG to a file of its own while it lives.
class SqlLog {
  public:
    explicit SqlLog(const std::string& path) : path_(path) {
        setenv("BILLDATA_SQL_LOG", path_.c_str(), 1);
    }
    ~SqlLog() { unsetenv("BILLDATA_SQL_LOG"); }
    SqlLog(const SqlLog&) = delete;
    SqlLog& operator=(const SqlLog&) = delete;

    std::vector<std::string> lines() const { return file_lines(path_); }
    void clear() const { std::ofstream(path_, std::ios::trunc); }
    // Index of the first logged statement that starts with `prefix` at or after `from`, or -1.
    int find(const std::string& prefix, int from = 0) const {
        auto all = lines();
        for (int i = from; i < static_cast<int>(all.size()); ++i)
            if (all[i].rfind(prefix, 0) == 0) return i;
        return -1;
    }
    int count(const std::string& prefix) const {
        int n = 0;
        for (const auto& l : lines())
            n += l.rfind(prefix, 0) == 0;
        return n;
    }

  private:
    std::string path_;
};

}  // namespace billdata::testing
