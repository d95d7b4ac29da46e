// The situation of most tests here: a client of the shared library, with the service "svc" and its method "get", and a
// stand-in agent, joined by a Unix-domain socket or by TCP. Agent and library share no code.
#pragma once

#include <gtest/gtest.h>
#include <zal/zal.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>

#include "tests/support/stand_in_agent.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace zal::test {

struct ClientDestroy {
  void operator()(ZAL_ClientHandle client) const { ZAL_Client_Destroy(client); }
};
using ClientPtr = std::unique_ptr<ZAL_ClientHandle_, ClientDestroy>;

/// A client that tries to connect every millisecond.
ClientPtr makeClient(const std::string& url);

using Handler = std::function<void(ZAL_MessageHandle request, ZAL_MessageHandle response)>;

/// Sets the response's data to a document of one member.
void respond(ZAL_MessageHandle response, const char* key, int32_t value);

/// The member "data" of a message's envelope as JSON text, "(none)" without one.
std::string dataOf(const std::string& envelope);

WireRecord requestOf(std::string name, int id, std::string payload = {}, std::string service = "svc");

/// Opens once; whoever waits before that is held, for a minute at most.
class Latch {
 public:
  void open();
  [[nodiscard]] bool wait();

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool isOpen_ = false;
};

enum class Transport { kUnix, kTcp };
void PrintTo(Transport transport, std::ostream* out);  // for the names of the tests

class ClientWithAgent : public ::testing::TestWithParam<Transport> {
 protected:
  ClientWithAgent();
  /// Ends the client before anything of the test that its handlers use.
  void TearDown() override;

  /// Adds a method whose handler lives as long as the fixture.
  void addMethod(ZAL_ServiceHandle service, const char* name, Handler handler);
  /// Adds "get", which counts its calls and answers with the member "value" of the request, -1 without one.
  void addGet(ZAL_ServiceHandle service);
  /// Starts the client, and waits until it has subscribed.
  void start();
  /// Waits until a connection has subscribed.
  [[nodiscard]] bool waitForSubscription(int connection);
  /// Sends a request and waits for its response.
  std::optional<WireRecord> call(const WireRecord& request);
  std::optional<WireRecord> waitForResponse(int id);
  /// How many images without records have arrived.
  [[nodiscard]] int emptyImages() const;

  TempDir dir_;
  StandInAgent agent_;
  std::atomic<int> calls_ = 0;  // of "get"
  std::deque<Handler> handlers_;
  ClientPtr client_;
  ZAL_ServiceHandle service_;  // the client's
};

/// Runs the tests of a fixture once over each transport.
#define ZAL_OVER_BOTH_TRANSPORTS(fixture)                                                       \
  INSTANTIATE_TEST_SUITE_P(Over, fixture, ::testing::Values(Transport::kUnix, Transport::kTcp), \
                           [](const auto& transport) { return ::testing::PrintToString(transport.param); })

}  // namespace zal::test
