#include "filter.hpp"

#include <algorithm>
#include <utility>

#include "report.hpp"

namespace zalctl {
namespace {

bool holds(const std::vector<std::string>& wanted, const std::string& text) {
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), text) != wanted.end();
}

}  // namespace

bool Filter::passes(const cJSON& message) const {
  return holds(kinds, textIn(message, "kind")) && holds(services, textIn(message, "service"));
}

void declareFilter(CLI::App& app, Filter& filter, std::vector<std::string> others) {
  std::vector<std::string> known = std::move(others);
  for (const Kind& kind : kKinds) known.emplace_back(kind.name);
  known.emplace_back(kEmpty);
  known.emplace_back(kMalformed);
  app.add_option("--kind", filter.kinds, "only these kinds of messages, separated by commas")
      ->delimiter(',')
      ->check(CLI::IsMember(known))
      ->capture_default_str();
  app.add_option("--service", filter.services, "only messages of these services, separated by commas")->delimiter(',');
}

}  // namespace zalctl
