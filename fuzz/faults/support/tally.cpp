#include "support/tally.hpp"

#include <algorithm>
#include <cstdio>

namespace faults {

const char* nameOf(Outcome outcome) noexcept {
  switch (outcome) {
    case Outcome::kPassed:
      return "passed";
    case Outcome::kEngineEnd:
      return "ended by the engine";
    case Outcome::kLibuvAbort:
      return "aborted by libuv";
    case Outcome::kWrong:
      return "WRONG";
    case Outcome::kLeaked:
      return "LEAKED";
    case Outcome::kHung:
      return "HUNG";
    case Outcome::kDied:
      break;
  }
  return "DIED";
}

Tally::Row& Tally::rowOf(const std::string& name) {
  const auto known = std::find_if(rows_.begin(), rows_.end(), [&](const Row& row) { return row.name == name; });
  return known != rows_.end() ? *known : rows_.emplace_back(Row{.name = name});
}

void Tally::add(const std::string& row, const std::string& point, Outcome outcome, const Report& report,
                const std::string& output) {
  Row& counted = rowOf(row);
  ++counted.points;
  switch (outcome) {
    case Outcome::kPassed:
      ++counted.passed;
      return;
    case Outcome::kEngineEnd:
      ++counted.passed;
      ++counted.engineEnds;
      return;
    case Outcome::kLibuvAbort:
      ++counted.libuvAborts;
      ++libuvAborts_[report.libuvName.data()];
      return;
    default:
      ++counted.failed;
  }
  constexpr std::size_t kEndOfOutput = 600;
  const std::string end = output.substr(output.size() - std::min(output.size(), kEndOfOutput));
  failures_.push_back(point + ": " + nameOf(outcome) + ' ' + report.text.data() + '\n' + end);
}

void Tally::printRow(const Row& row) {
  std::printf("%-28s %7d %7d %7d %7d %7d %7d\n", row.name.c_str(), row.points, row.passed, row.engineEnds,
              row.libuvAborts, row.failed, row.unmet);
}

void Tally::print(const char* rowTitle) const {
  constexpr std::size_t kShown = 20;
  std::printf("%-28s %7s %7s %7s %7s %7s %7s\n", rowTitle, "points", "passed", "engine", "libuv", "failed", "unmet");
  Row total{.name = "total"};
  for (const Row& row : rows_) {
    printRow(row);
    total.points += row.points;
    total.passed += row.passed;
    total.engineEnds += row.engineEnds;
    total.libuvAborts += row.libuvAborts;
    total.failed += row.failed;
    total.unmet += row.unmet;
  }
  printRow(total);
  for (const auto& [function, count] : libuvAborts_)
    std::printf("libuv aborts in %-28s %5d times\n", function.c_str(), count);
  for (std::size_t i = 0; i < std::min(failures_.size(), kShown); ++i) std::printf("\n%s\n", failures_[i].c_str());
  if (failures_.size() > kShown) std::printf("\n... and %zu more\n", failures_.size() - kShown);
}

}  // namespace faults
