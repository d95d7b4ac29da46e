// Shows what passes over connections: decoded, filtered, with round-trip times. One thread at a time.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string_view>

#include "filter.hpp"
#include "printer.hpp"
#include "recording.hpp"
#include "session.hpp"
#include "wire.hpp"

namespace zalctl {

struct ViewOptions {
  Filter filter;
  bool isJson = false;
  bool isHex = false;
};

/// One connection as an onlooker knows it: what was asked and is not answered yet.
class Conversation {
 public:
  explicit Conversation(unsigned number) : calls_{number, nullptr}, gateway_{number, nullptr} {}

  /// What an entry says, as JSON: an object for each record, or one for what holds none.
  [[nodiscard]] std::vector<JsonPtr> read(const Entry& entry);

 private:
  void addRecord(cJSON& message, const Record& record, Clock::time_point time);
  void addEmpty(cJSON& message, Clock::time_point time);

  Session calls_;    // requests of the agent
  Session gateway_;  // requests of the client
};

class Viewer {
 public:
  Viewer(Printer& printer, ViewOptions options) : printer_{printer}, options_{std::move(options)} {}
  void show(const Entry& entry);

 private:
  void print(cJSON& message, std::string_view bytes);

  Printer& printer_;
  const ViewOptions options_;
  std::map<unsigned, Conversation> conversations_;
};

/// The options --kind, --service and --hex of a command.
void declareView(CLI::App& app, ViewOptions& options);

}  // namespace zalctl
