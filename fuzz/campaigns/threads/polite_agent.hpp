// An agent that does what an agent does, on a thread of its own: it greets every client that comes, asks of it what it
// was told to, and answers its gateway requests.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "fuzz/campaigns/support/endpoint.hpp"

namespace zal::campaign {

class PoliteAgent {
 public:
  /// Asks for these methods of the service "svc", in turn, with so many requests at a time.
  PoliteAgent(Listener& listener, std::vector<std::string> methods, int requestsAtATime);
  ~PoliteAgent();
  PoliteAgent(const PoliteAgent&) = delete;
  PoliteAgent& operator=(const PoliteAgent&) = delete;

  [[nodiscard]] long answers() const noexcept { return answers_; }

 private:
  void run();
  void serve(Connection& connection);
  void take(const Connection& connection, const test::WireImage& image);
  void ask(const Connection& connection);

  Listener& listener_;
  const std::vector<std::string> methods_;
  const int requestsAtATime_;
  int lastId_ = 0;
  std::atomic<long> answers_ = 0;
  std::atomic<bool> isOver_ = false;
  std::thread thread_;
};

}  // namespace zal::campaign
