#include "filter.hpp"

#include <algorithm>
#include <utility>

#include "report.hpp"

namespace zalctl {
namespace {

bool holds(const std::vector<std::string>& wanted, const std::string& text) {
  return wanted.empty() || std::find(wanted.begin(), wanted.end(), text) != wanted.end();
}

/// Words with commas, a few on each line of a help text.
std::string wrapped(const std::vector<std::string>& words) {
  constexpr std::size_t kPerLine = 7;
  std::string text;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i != 0) text += i % kPerLine == 0 ? ",\n" : ", ";
    text += words[i];
  }
  return text;
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
  const std::string list = CLI::detail::join(known, ", ");
  const auto isKnown = [known, list](const std::string& kind) {
    return holds(known, kind) ? std::string{} : kind + " is no kind: " + list;
  };
  app.add_option("--kind", filter.kinds, "only these kinds, separated by commas:\n" + wrapped(known))
      ->expected(1)
      ->delimiter(',')
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CLI::Validator{isKnown, ""})
      ->default_str(CLI::detail::join(filter.kinds, ","));
  app.add_option("--service", filter.services, "only messages of these services, separated by commas")
      ->expected(1)
      ->delimiter(',')
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace zalctl
