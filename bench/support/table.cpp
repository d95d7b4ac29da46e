#include "support/table.hpp"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace bench {

namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Three digits that count.
std::string figure(double value) {
  char text[32];
  const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : value >= 1 ? 2 : 3;
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

}  // namespace

void Report::add(const Measure& measure, const std::vector<Candidate>& candidates) {
  std::vector<std::vector<double>> figures(candidates.size());
  for (int round = 0; round < measure.rounds; ++round)
    for (std::size_t i = 0; i < candidates.size(); ++i) figures[i].push_back(candidates[i].measure());

  std::printf("\n%s [%s], %d rounds\n", measure.name.c_str(), measure.unit.c_str(), measure.rounds);
  std::printf("  %-24s %10s %10s %10s %8s\n", "", "min", "median", "max", "ratio");
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < figures[i].size(); ++round)
      ratios.push_back(figures[i][round] / figures[0][round]);
    const auto [least, most] = std::minmax_element(figures[i].begin(), figures[i].end());
    const double ratio = median(ratios);
    std::printf("  %-24s %10s %10s %10s %8.3f\n", candidates[i].name.c_str(), figure(*least).c_str(),
                figure(median(figures[i])).c_str(), figure(*most).c_str(), ratio);
    ratios_[measure.name + ": " + candidates[i].name] = ratio;
  }
  std::fflush(stdout);
}

void Report::compareWith(const std::string& path) const {
  std::ifstream file{path};
  if (!file) return;
  std::stringstream text;
  text << file.rdbuf();
  const Json baseline{cJSON_Parse(text.str().c_str()), cJSON_Delete};
  if (!baseline) throw std::runtime_error{path + " is no JSON"};

  std::printf("\nRatios now and in %s\n", path.c_str());
  for (const auto& [name, ratio] : ratios_) {
    const cJSON* before = cJSON_GetObjectItemCaseSensitive(baseline.get(), name.c_str());
    if (cJSON_IsNumber(before) == 0) continue;
    std::printf("  %-60s %8.3f %8.3f  %+.0f %%\n", name.c_str(), ratio, before->valuedouble,
                (ratio / before->valuedouble - 1) * 100);
  }
}

void Report::save(const std::string& path) const {
  const Json report{cJSON_CreateObject(), cJSON_Delete};
  for (const auto& [name, ratio] : ratios_) cJSON_AddNumberToObject(report.get(), name.c_str(), ratio);
  const std::unique_ptr<char, decltype(&std::free)> text{cJSON_Print(report.get()), std::free};
  std::ofstream{path} << text.get() << '\n';
}

}  // namespace bench
