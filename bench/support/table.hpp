// What is measured, how it is printed, and how it compares with an earlier run. The candidates of a table take turns in
// every round, and a ratio is taken inside its round: these machines drift.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

/// One way to do the work: measures itself once and returns the figure.
struct Candidate {
  std::string name;
  std::function<double()> measure;
};

struct Measure {
  std::string name;
  std::string unit;
  int rounds;
};

class Report {
 public:
  /// Measures and prints one table. The first candidate is what the ratios refer to.
  void add(const Measure& measure, const std::vector<Candidate>& candidates);
  /// Prints how each median ratio compares with that of an earlier report; a file that is not there is no error.
  void compareWith(const std::string& path) const;
  void save(const std::string& path) const;

 private:
  std::map<std::string, double> ratios_;  // "measure: candidate", the median over the rounds
};

}  // namespace bench
