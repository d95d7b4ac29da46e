// A client whose handlers and callbacks call every function of the library that they may call.
#pragma once

#include <zal/zal.h>

#include <atomic>
#include <chrono>
#include <string>

#include "fuzz/campaigns/support/endpoint.hpp"

namespace zal::campaign {

/// Counts the handlers and callbacks of all clients, and remembers when the last of them has ended.
class HandlerWatch {
 public:
  class Scope {
   public:
    explicit Scope(HandlerWatch& watch) noexcept : watch_{watch} { ++watch_.calls_; }
    ~Scope() { watch_.lastEnd_ = Clock::now().time_since_epoch().count(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    HandlerWatch& watch_;
  };

  [[nodiscard]] long calls() const noexcept { return calls_; }
  [[nodiscard]] Clock::time_point lastEnd() const noexcept { return Clock::time_point{Clock::duration{lastEnd_}}; }

 private:
  std::atomic<long> calls_ = 0;
  std::atomic<Clock::rep> lastEnd_ = 0;
};

extern HandlerWatch handlerWatch;

/// What a sending thread or a handler does, by a number that its caller counts up.
void callSomething(ZAL_ClientHandle client, int turn);

/// A client that is not started, with the service "svc" and its methods "echo", "some" and "all".
ZAL_ClientHandle makeTalkativeClient(const std::string& url);

}  // namespace zal::campaign
