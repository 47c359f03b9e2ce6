#pragma once
// Runs a shell command as a script runs the command line, and collects its standard output.

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

namespace billdata::testing {

struct Outcome {
    int status = -1;  // the exit status, or 128 + the signal that ended it
    std::string out;
};

// Standard error is dropped unless `with_errors` (then it comes with the output) or the command
// redirects it itself.
inline Outcome shell(const std::string& command, bool with_errors = false) {
    Outcome r;
    FILE* pipe = ::popen((command + (with_errors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
    if (!pipe) return r;
    std::array<char, 65536> buffer{};
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        r.out.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return r;
}

inline std::string shell_quote(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

}  // namespace billdata::testing
