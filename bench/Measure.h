#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace vorlane::bench {

using Seconds = std::chrono::duration<double>;

/// The time that one call takes.
template <class Work>
double secondsFor(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return Seconds(std::chrono::steady_clock::now() - start).count();
}

/// The value below which `share` of the samples lie. Sorts them.
inline double percentile(std::vector<double>& samples, double share) {
  std::ranges::sort(samples);
  const auto index = static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1));
  return samples[index];
}

struct Pair {
  double ours = 0;
  double floor = 0;
  double ratio() const { return ours / floor; }
};

/// The median times of two pieces of work, measured in turns, so that whatever
/// else the machine does meets both alike.
template <class Ours, class Floor>
Pair medians(int rounds, Ours&& ours, Floor&& floor) {
  std::vector<double> a, b;
  for (int round = 0; round < rounds; ++round) {
    a.push_back(secondsFor(ours));
    b.push_back(secondsFor(floor));
  }
  return {percentile(a, 0.5), percentile(b, 0.5)};
}

}  // namespace vorlane::bench
