// An agent that does to its client what a seed tells it to. Everything it does keeps to one rule: it knows what the
// client owes for it.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/campaigns/chaos/application.hpp"
#include "fuzz/campaigns/chaos/ledger.hpp"
#include "fuzz/campaigns/support/endpoint.hpp"
#include "fuzz/campaigns/support/processor_wait.hpp"
#include "fuzz/campaigns/support/random.hpp"

namespace zal::campaign {

/// How long after each return of the agent the client had subscribed, beyond what it may wait: its interval and 100 ms.
struct Lateness {
  double worstMs = 0;
  long above20Ms = 0;
  long returns = 0;

  /// Throws Failure when it is more than what the machine takes, and the work that is ahead of it.
  void add(Milliseconds late, Milliseconds machine);
};

class HostileAgent {
 public:
  HostileAgent(unsigned seed, Listener& listener, Application& application);

  /// One connection from its begin to its end.
  void round();
  /// A connection on which nothing happens: everything is answered, gateway requests too, when `look` is called, and
  /// the client holds the same small configuration each time.
  template <class Look>
  void rest(Look look) {
    meet("{}");
    application_.pause();
    settleAll();
    look();
    application_.resume();
    leave();
  }

  [[nodiscard]] const Ledger& ledger() const noexcept { return ledger_; }
  [[nodiscard]] const Lateness& lateness() const noexcept { return lateness_; }
  [[nodiscard]] long events() const noexcept { return events_; }
  [[nodiscard]] long rounds() const noexcept { return lateness_.returns; }

 private:
  enum class After { kGoOn, kEnd };
  struct Act {
    int weight;
    After (HostileAgent::*perform)();
  };
  static const std::vector<Act> kActs;
  static const std::vector<void (HostileAgent::*)()> kEnds;

  // Being there, and going.
  void meet(const std::string& configuration);
  void leave();
  void vanish();

  // What goes on all the time.
  void pump(std::chrono::milliseconds patience, std::size_t most = 65536);
  void take(const test::WireImage& image);
  void takeEvent(const test::WireRecord& record);
  void settle();
  void settleAll();
  void sendCut(const std::string& bytes);
  std::string configuration();

  // Requests.
  test::WireRecord request();
  test::WireRecord vainRequest();
  std::string requests(int images, int mostRecords);

  // Acts.
  After ask();
  After askByteByByte();
  After askManyJoined();
  After askCut();
  After sendOddities();
  After sendUndecodable();
  After notify();
  After configure();
  After answerQuestions();
  After flood();
  After sendGarbageAndGoOn();
  After beSilent();

  // Ends.
  void endAtOnce() {}
  void endInsideAnImage();
  void endWithReset();
  void endHalf();
  void endWithGarbage();
  void endWithOversized();
  void endUnread();

  Random random_;
  Listener& listener_;
  Application& application_;
  Connection connection_{Descriptor{}};
  Clock::time_point back_ = Clock::now();
  ProcessorWait sinceBack_;

  Ledger ledger_;
  Lateness lateness_;
  bool isConfigurationAsked_ = false;
  bool isSubscribed_ = false;
  long events_ = 0;
  std::map<std::string, int> lastEvents_;  // by sender
  std::map<int, std::string> questions_;   // that the agent knows of, by request id
  long sweptQuestions_ = 0;
};

}  // namespace zal::campaign
