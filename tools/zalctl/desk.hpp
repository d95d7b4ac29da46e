// What other terminals may ask of a running agent, in the agent's own records, so that one language serves everywhere:
// a request to the service "zalctl" with JSON in its payload, its answer, and news as events.
//
//   call    {"service", "name", "payload", "timeout"}   the result of the call
//   list    {}                                          {"clients": [{"client", "subscriptions"}]}
//   config  {"document"}                                {"clients"}: their number
//   listen  {}                                          {}, and from then on every piece of news as an event
//
// A request that cannot be understood is answered with {"error"}. The loop thread only, or while the loop does not run.
#pragma once

#include <list>
#include <memory>
#include <vector>

#include "agent.hpp"
#include "wire.hpp"

namespace zalctl {

/// Somebody at the desk.
class Visitor {
 public:
  virtual ~Visitor() = default;
  virtual void receive(const Record& record) = 0;
};

class Desk {
 public:
  explicit Desk(Agent& agent);
  /// Stops the agent.
  ~Desk();
  Desk(const Desk&) = delete;
  Desk& operator=(const Desk&) = delete;

  /// Serves one request; the visitor may go before it is answered.
  void serve(const Record& request, const std::shared_ptr<Visitor>& visitor);

 private:
  struct Waiting;
  struct Inquiry {
    const Record& request;
    const cJSON& arguments;
    const std::shared_ptr<Visitor>& visitor;
  };
  struct Command;
  static const Command kTable[];

  // Each gives the answer, or null when it comes later.
  JsonPtr list(const Inquiry& inquiry);
  JsonPtr config(const Inquiry& inquiry);
  JsonPtr listen(const Inquiry& inquiry);
  JsonPtr call(const Inquiry& inquiry);
  void end(Waiting& waiting, const Answer& answer);
  void publish(const News& news);

  Agent& agent_;
  std::list<std::unique_ptr<Waiting>> calls_;
  std::vector<std::weak_ptr<Visitor>> listeners_;
};

/// The service name of the desk's own records.
inline constexpr const char* kDesk = "zalctl";

/// The subscriptions of a client as JSON, and as people read it.
[[nodiscard]] JsonPtr toJson(const ClientInfo& client);

}  // namespace zalctl
