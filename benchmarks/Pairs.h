/// Comparison of times in pairs: A B, A B, B A, ... in one process.
/// One thread.
///
/// The speed of a shared machine changes, but rarely between two successive passes of some
/// milliseconds. So the ratio within each pair is meaningful, and the median of many ratios is
/// reliable.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <functional>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace kel::benchmarks {

/// Returns the processor time of the thread in nanoseconds, without the time of other programs.
inline double ThreadNanoseconds() {
    std::timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// Returns the nanoseconds that @p work takes.
template <typename Work>
double NanosecondsOf(Work work) {
    const double begin = ThreadNanoseconds();
    work();
    return ThreadNanoseconds() - begin;
}

/// A median with its interval of 95 per cent confidence for any distribution.
struct Median {
    double value = 0;
    double low = 0;
    double high = 0;
};

/// @param values at least one
inline Median MedianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto count = static_cast<double>(values.size());
    const auto at = [&](double rank) {
        return values[static_cast<std::size_t>(std::clamp(rank, 0.0, count - 1))];
    };
    const double reach = 0.98 * std::sqrt(count);
    return {at(count / 2), at(count / 2 - reach), at(count / 2 + reach)};
}

/// The passes of a comparison, in order.
struct Pairs {
    std::vector<double> base;  ///< nanoseconds of each pass of the base
    std::vector<double> other; ///< nanoseconds of the other pass in the pair

    Median Ratio() const {
        return Combine([](double b, double o) { return o / b; });
    }
    Median Difference() const {
        return Combine([](double b, double o) { return o - b; });
    }

private:
    template <typename Operation>
    Median Combine(Operation operation) const {
        std::vector<double> results(base.size());
        std::transform(base.begin(), base.end(), other.begin(), results.begin(), operation);
        return MedianOf(std::move(results));
    }
};

/// One timed pass, which returns the nanoseconds of its measured part.
using Pass = std::function<double()>;

/// Runs so many rounds of all passes and compares each of the others with the first. The passes
/// take turns as the first of a round. One more round before them warms up and does not count.
inline std::vector<Pairs> Compare(std::size_t rounds, const std::vector<Pass>& passes) {
    for (const Pass& pass : passes) {
        pass();
    }
    std::vector<std::vector<double>> times(passes.size());
    std::vector<std::size_t> order(passes.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::mt19937 random; // NOLINT(cert-msc32-c,cert-msc51-cpp): the default seed, on purpose
    for (std::size_t round = 0; round < rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const std::size_t chosen : order) {
            times[chosen].push_back(passes[chosen]());
        }
    }
    std::vector<Pairs> pairs;
    for (std::size_t i = 1; i < passes.size(); ++i) {
        pairs.push_back({times.front(), times[i]});
    }
    return pairs;
}

} // namespace kel::benchmarks
