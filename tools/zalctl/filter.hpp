// Which messages a command shows: by service and by kind.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "wire.hpp"

namespace zalctl {

struct Filter {
  std::vector<std::string> kinds;     // none for all
  std::vector<std::string> services;  // none for all
  /// Whether a message, by its members kind and service, is to be shown.
  [[nodiscard]] bool passes(const cJSON& message) const;
};

/// The options --kind and --service of a command; `others` are kinds besides those of messages.
void declareFilter(CLI::App& app, Filter& filter, std::vector<std::string> others);

}  // namespace zalctl
