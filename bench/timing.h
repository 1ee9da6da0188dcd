// What the C++ benchmarks share: the best time of several rounds, and a
// standard output kept off the report while the console's own code prints.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

// The shortest of `rounds` runs of fn(), in milliseconds (or in units of Period).
template <typename Period = std::milli, typename Fn>
double best_of(int rounds, Fn fn) {
    double best = 1e30;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = std::chrono::steady_clock::now();
        fn();
        std::chrono::duration<double, Period> d = std::chrono::steady_clock::now() - t0;
        best = std::min(best, d.count());
    }
    return best;
}

// Standard output goes to /dev/null while it lives.
struct Quiet {
    int saved = dup(STDOUT_FILENO);
    Quiet() {
        std::fflush(stdout);
        int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~Quiet() {
        std::fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        close(saved);
    }
};
