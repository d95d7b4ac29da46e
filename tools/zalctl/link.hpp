// The agent that a command speaks to: the one of another terminal, through its control socket, or one of the command's
// own that listens for clients itself. The same records go either way, see desk.hpp. The command thread only.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "waiter.hpp"
#include "wire.hpp"

namespace zalctl {

class Link {
 public:
  virtual ~Link() = default;
  /// Waits until a client has subscribed the method, or, when both names are empty, any; false when none came in time.
  /// The agent of another terminal is not waited for.
  [[nodiscard]] virtual bool awaitClient(const std::string& service, const std::string& method) = 0;
  virtual void send(const Record& request) = 0;
  /// What comes back next; nothing when the deadline passed or a signal came. Throws NoAgent.
  virtual std::optional<Record> receive(Clock::time_point deadline) = 0;
};

struct LinkOptions {
  std::string url;
  std::string control;
  unsigned waitMs = 10000;
  bool isJson = false;
};

inline constexpr const char* kDefaultUrl = "file:///tmp/zalIPC.sock";

/// The options --control, --url, --wait and --json of a command.
void declareLink(CLI::App& app, LinkOptions& options);
/// Throws NoAgent, or std::runtime_error when it cannot listen.
[[nodiscard]] std::unique_ptr<Link> openLink(const LinkOptions& options, Waiter& waiter);

/// The time for what the agent answers at once.
inline constexpr std::chrono::seconds kAnswerTime{10};
/// Sends a request to the desk and waits for its answer; null after a signal. Throws NoAgent when there is none in
/// time, and std::runtime_error when the desk refuses.
[[nodiscard]] JsonPtr ask(Link& link, const char* command, const cJSON& arguments, Clock::time_point deadline);

}  // namespace zalctl
