#include "support/point.hpp"

#include <utility>

namespace faults {

void startPoint(Children& children, Tally& tally, Point point, int tries) {
  const Children::Body body = point.body;
  children.start(body, [&children, &tally, point = std::move(point), tries](Outcome outcome, const Report& report,
                                                                            const std::string& output) {
    if (outcome == Outcome::kPassed && report.strikes == 0)
      return tries > 1 ? startPoint(children, tally, point, tries - 1) : tally.addUnmet(point.row);
    if (outcome == Outcome::kEngineEnd && !point.mayEndInEngine) outcome = Outcome::kDied;
    tally.add(point.row, point.name, outcome, report, output);
  });
}

}  // namespace faults
