// One connected client as the agent knows it: what it subscribed and which calls it has not answered.
// The agent's lock guards every member that changes; number and context never do.
#pragma once

#include <zal/zal_ipc.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "waiter.hpp"

namespace zalctl {

enum class Outcome { kAnswered, kNoSuchMethod, kNoReply, kDisconnected, kNotConnected, kInterrupted };

/// What became of a call, and how long it took or was waited for.
struct Answer {
  Outcome outcome = Outcome::kNoReply;
  std::string payload;
  std::chrono::duration<double, std::milli> took{};
};

/// A request without an answer yet. It stays open after its caller's time-out: the answer may still come.
struct OpenCall {
  std::uint16_t id;
  std::string service;
  std::string name;
  Clock::time_point sentAt;
  std::function<void(const Answer&)> done;  // empty once nobody waits any more
};

/// The method that a request's name asks for: the name up to its path or query.
[[nodiscard]] std::string methodOf(std::string_view name);

class Session {
 public:
  Session(unsigned number, ZAL_IpcClientContext context) : number_{number}, context_{context} {}

  [[nodiscard]] unsigned number() const { return number_; }
  [[nodiscard]] ZAL_IpcClientContext context() const { return context_; }

  void subscribe(std::string service, std::string method) { offers_.emplace(std::move(service), std::move(method)); }
  [[nodiscard]] bool offers(const std::string& service, const std::string& method) const;
  [[nodiscard]] const std::set<std::pair<std::string, std::string>>& subscriptions() const { return offers_; }

  /// Opens a call. Of too many, the oldest one that nobody waits for is forgotten.
  void open(OpenCall call);
  [[nodiscard]] bool hasOpen(std::uint16_t id) const;
  /// Forgets who waits for the call.
  void abandon(std::uint16_t id);
  /// Takes every open call, oldest first.
  [[nodiscard]] std::vector<OpenCall> closeAll() { return std::exchange(calls_, {}); }
  /// Closes the call with this id.
  std::optional<OpenCall> close(std::uint16_t id);
  /// Closes the call that an answer without an id belongs to: the oldest one to a method that the client does not
  /// offer, since that is what such an answer says; without such a call the oldest one.
  std::optional<OpenCall> closeNameless();

  /// True once the agent has asked for the connection's end. Nothing is sent to the client from then on.
  [[nodiscard]] bool isClosing() const { return isClosing_; }
  void setClosing() { isClosing_ = true; }

 private:
  std::optional<OpenCall> take(std::vector<OpenCall>::iterator call);

  unsigned number_;
  ZAL_IpcClientContext context_;
  bool isClosing_ = false;
  std::set<std::pair<std::string, std::string>> offers_;  // service and method
  std::vector<OpenCall> calls_;                           // oldest first
};

}  // namespace zalctl
