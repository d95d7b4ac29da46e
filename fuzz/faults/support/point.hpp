// One point: a run in which one event is to fail, in a child of its own.
#pragma once

#include <string>

#include "support/child.hpp"
#include "support/tally.hpp"

namespace faults {

struct Point {
  std::string row;   // of the tally
  std::string name;  // how to meet the point again
  Children::Body body;
  bool mayEndInEngine = false;
};

/// How often a run without a fault is counted. The shortest one counts: on a busy machine a run can have a hundred
/// times the events of another, only because its agent asked so often meanwhile.
constexpr int kCountedRuns = 5;

/// Starts it, and adds what comes of it to the tally. With threads, a run may have fewer events than the one that they
/// were counted in: then it is tried again, `tries` times in all.
void startPoint(Children& children, Tally& tally, Point point, int tries = 10);

}  // namespace faults
