// What came of all points: a table, the aborts of libuv by name, and the points that failed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/child.hpp"

namespace faults {

const char* nameOf(Outcome outcome) noexcept;

class Tally {
 public:
  /// `point` is how to meet the point again.
  void add(const std::string& row, const std::string& point, Outcome outcome, const Report& report,
           const std::string& output);
  /// A point that no run came to.
  void addUnmet(const std::string& row) { ++rowOf(row).unmet; }
  void print(const char* rowTitle) const;
  [[nodiscard]] bool hasFailures() const noexcept { return !failures_.empty(); }

 private:
  struct Row {
    std::string name;
    int points = 0;
    int passed = 0;
    int engineEnds = 0;
    int libuvAborts = 0;
    int failed = 0;
    int unmet = 0;
  };
  Row& rowOf(const std::string& name);
  static void printRow(const Row& row);

  std::vector<Row> rows_;
  std::map<std::string, int> libuvAborts_;  // by function
  std::vector<std::string> failures_;
};

}  // namespace faults
