// How everything here is measured: subject and reference in one process, pair by pair, the median of the ratios.
//
// One line a measure, tab-separated: measure, ours, reference, ratio, gate, goal, verdict. Times are nanoseconds an
// operation unless the measure says otherwise. The verdict is "ok" at the goal, "gate" between, "short" beyond the
// gate.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;
// Performs the operation that many times.
using Work = std::function<void(std::uint64_t)>;

template <class T>
inline void Keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

// Nobody times an error path by accident.
inline void Must(bool held, const char* what) {
    if (held) return;
    std::fprintf(stderr, "bench: %s failed\n", what);
    std::exit(1);
}

inline double Nanoseconds(const Work& work, std::uint64_t times) {
    const auto begin = Clock::now();
    work(times);
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

// How often the operation fits into about ten milliseconds. Finding out warms the caches, too.
// `least` keeps work that starts threads from being measured by their start.
inline std::uint64_t Calibrate(const Work& work, std::uint64_t least) {
    constexpr double kBlock = 10e6;
    for (std::uint64_t times = least;;) {
        const double took = Nanoseconds(work, times);
        if (took >= kBlock * 0.6 || times > (1ull << 34)) return times;
        const double grow = took > 1000 ? kBlock / took : 16;
        times = static_cast<std::uint64_t>(static_cast<double>(times) * std::clamp(grow, 1.3, 16.0)) + 1;
    }
}

inline double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

enum class Better { kLower, kHigher };

struct Limits {
    double gate;
    double goal;
    Better better = Better::kLower;
};

inline void Print(const char* measure, double ours, double reference, double ratio, const Limits& limits) {
    const bool higher = limits.better == Better::kHigher;
    const auto within = [&](double limit) { return higher ? ratio >= limit : ratio <= limit; };
    const char* verdict = within(limits.goal) ? "ok" : within(limits.gate) ? "gate" : "short";
    std::printf("%s\t%.2f\t%.2f\t%.3f\t%.2f\t%.2f\t%s\n", measure, ours, reference, ratio, limits.gate, limits.goal,
                verdict);
    std::fflush(stdout);
}

// `per` operations are counted for each one performed: records of an array, values of a key.
inline void Compare(const char* measure, const Limits& limits, const Work& ours, const Work& reference,
                    double oursPer = 1, double referencePer = 1, std::uint64_t least = 1) {
    constexpr int kPairs = 15;
    const std::uint64_t oursTimes = Calibrate(ours, least);
    const std::uint64_t referenceTimes = Calibrate(reference, least);
    std::vector<double> a, b, ratios;
    for (int pair = 0; pair < kPairs; ++pair) {
        a.push_back(Nanoseconds(ours, oursTimes) / static_cast<double>(oursTimes) / oursPer);
        b.push_back(Nanoseconds(reference, referenceTimes) / static_cast<double>(referenceTimes) / referencePer);
        ratios.push_back(limits.better == Better::kHigher ? b.back() / a.back() : a.back() / b.back());
    }
    Print(measure, Median(a), Median(b), Median(ratios), limits);
}

// The groups of measures, one unit each.
void Queries();
void Registry();
void Loads();
void Documents();
void Cache();
void Decisions();
void Writes(const char* programs);
void Tracing();
void Lifecycle();
void Startup(const char* folder);

}  // namespace bench
