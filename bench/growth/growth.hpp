// Time and memory against size. The candidates of a table are the sizes, the figure is that of one item: a ratio of 1
// means that an item costs the same however many there are.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "suites.hpp"

namespace bench {

/// `fewest`, ten times as many, and so on, and `most`; with little effort only the smaller ones.
std::vector<int> sizes(int fewest, int most, const Settings& settings);

/// One candidate a size.
template <class Measurement>
std::vector<Candidate> atEach(const std::vector<int>& sizes, Measurement measurement) {
  std::vector<Candidate> candidates;
  for (const int size : sizes)
    candidates.push_back({std::to_string(size), [size, measurement] { return measurement(size); }});
  return candidates;
}

/// Bytes of this process that malloc has given out.
double heapBytes();

/// Waits until others have counted that far.
void awaitCount(const std::atomic<int>& counter, int count);

// growth/client.cpp: services and methods of a client, and requests of it that wait for their answer
void measureServiceGrowth(const Settings& settings, Report& report);
void measureGatewayGrowth(const Settings& settings, Report& report);
// growth/server.cpp: connections of one transport handle
void measureConnectionGrowth(const Settings& settings, Report& report);
// growth/loop.cpp: commands in the queue of a loop
void measureCommandGrowth(const Settings& settings, Report& report);

}  // namespace bench
