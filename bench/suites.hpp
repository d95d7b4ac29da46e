// What can be measured. Each suite adds its tables to the report.
#pragma once

#include <string>

#include "support/table.hpp"

namespace bench {

struct Settings {
  std::string programs;  ///< where the clients' programs lie
  int rounds = 7;
  double effort = 1;  ///< how much of the usual amount of work a round does
};

void measureStarts(const Settings& settings, Report& report);
void measureLog(const Settings& settings, Report& report);
void measureFilters(const Settings& settings, Report& report);
void measureProcesses(const Settings& settings, Report& report);
void measureAnswers(const Settings& settings, Report& report);
void measureBase64(const Settings& settings, Report& report);
void measureGather(const Settings& settings, Report& report);
void measureRecords(const Settings& settings, Report& report);
void measureGrowth(const Settings& settings, Report& report);
void measureRequests(const Settings& settings, Report& report);
void measureEvents(const Settings& settings, Report& report);
void measureDocuments(const Settings& settings, Report& report);

}  // namespace bench
