#pragma once
// What every benchmark program shares: timing, medians, and the rows of the one table that
// scripts/run-bench.sh prints. Each program writes its rows ("| … |" lines) to standard output
// and its progress to standard error, so that the script can gather the rows of all programs
// under one header.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace billdata::bench {

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

inline double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// Median seconds of one call of `fn` over `runs` runs.
inline double measure(int runs, const std::function<void()>& fn) {
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        const auto t0 = Clock::now();
        fn();
        t.push_back(seconds_since(t0));
    }
    return median(t);
}

// BENCH_SCALE=<fraction> shrinks the data sets and run lengths for a quick try.
inline double scale() {
    const char* s = std::getenv("BENCH_SCALE");
    const double v = s ? std::atof(s) : 1.0;
    return v > 0 ? v : 1.0;
}

inline long scaled(long full, long at_least) {
    return std::max(at_least, static_cast<long>(static_cast<double>(full) * scale()));
}

// "1.23 ms", "4,056 sales/s": three significant digits, thousands grouped.
inline std::string quantity(double v, const char* unit) {
    char buf[64];
    if (v >= 1000) {
        std::snprintf(buf, sizeof buf, "%.0f", v);
        std::string digits = buf, grouped;
        const std::size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
        grouped.append(digits, 0, lead);
        for (std::size_t i = lead; i < digits.size(); i += 3) {
            grouped += ',';
            grouped.append(digits, i, 3);
        }
        grouped += ' ';
        return grouped.append(unit);
    }
    std::snprintf(buf, sizeof buf, "%.3g %s", v, unit);
    return buf;
}

// One row: what was measured, billdata's figure, the reference figure, their ratio (billdata's
// rate over the reference's, or the reference's time over billdata's: above 1 means billdata is
// faster) and the target the ratio or figure must meet, with whether it did.
struct Row {
    std::string what, ours, reference, ratio, target;
};

inline void print_row(const Row& r) {
    std::printf("| %s | %s | %s | %s | %s |\n", r.what.c_str(), r.ours.c_str(), r.reference.c_str(),
                r.ratio.c_str(), r.target.c_str());
    std::fflush(stdout);
}

inline std::string ratio_text(double ratio) {
    char buf[32];
    std::snprintf(buf, sizeof buf, ratio >= 100 ? "%.0f" : "%.2f", ratio);
    return buf;
}

inline std::string verdict(bool met, const std::string& target) {
    return target.empty() ? "" : target + (met ? " ✓" : " ✗ missed");
}

// A rate (higher is better) against a reference rate, with a minimum ratio (0: no target).
inline void report_rates(const std::string& what, double ours, double reference, const char* unit,
                         double min_ratio) {
    const double r = ours / reference;
    print_row({what, quantity(ours, unit), quantity(reference, unit), ratio_text(r),
               min_ratio > 0 ? verdict(r >= min_ratio, "≥ " + ratio_text(min_ratio)) : ""});
}

// Sales per second of `runs` runs of `per_run` sales each, two contenders taking turns run by
// run, so that both see the same state of the machine. Returns the two medians.
inline std::pair<double, double> side_by_side(int runs, long per_run,
                                              const std::function<void()>& a,
                                              const std::function<void()>& b) {
    std::vector<double> ra, rb;
    for (int r = 0; r < runs; ++r) {
        auto t0 = Clock::now();
        a();
        ra.push_back(static_cast<double>(per_run) / seconds_since(t0));
        t0 = Clock::now();
        b();
        rb.push_back(static_cast<double>(per_run) / seconds_since(t0));
    }
    return {median(ra), median(rb)};
}

// A scratch folder for one run's databases, removed at exit.
struct Scratch {
    std::filesystem::path dir;
    explicit Scratch(const char* name) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / (std::string(name) + "-XXXXXX")).string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot create a scratch folder");
        dir = pattern;
    }
    ~Scratch() {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    std::string path(const std::string& file) const { return (dir / file).string(); }
};

}  // namespace billdata::bench
