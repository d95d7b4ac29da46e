// The situation of most tests here: a client of the shared library, with the service "svc" and its method "get", and a
// stand-in agent, joined by a Unix-domain socket. Agent and library share no code.
#pragma once

#include <gtest/gtest.h>
#include <zal/zal.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "tests/support/stand_in_agent.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"

namespace zal::test {

struct ClientDestroy {
  void operator()(ZAL_ClientHandle client) const { ZAL_Client_Destroy(client); }
};
using ClientPtr = std::unique_ptr<ZAL_ClientHandle_, ClientDestroy>;

using Handler = std::function<void(ZAL_MessageHandle request, ZAL_MessageHandle response)>;

/// Sets the response's data to a document of one member.
void respond(ZAL_MessageHandle response, const char* key, int32_t value);

/// The last member of a message's envelope, "data", as JSON text; "(none)" without one.
std::string dataOf(const std::string& envelope);

WireRecord requestOf(std::string name, int id, std::string payload = {}, std::string service = "svc");

class ClientWithAgent : public ::testing::Test {
 protected:
  ClientWithAgent();
  /// Ends the client before anything of the test that its handlers use.
  void TearDown() override { client_.reset(); }

  /// A client that tries to connect every millisecond, with a service "svc" that goes to `service`.
  ClientPtr makeClient(ZAL_ServiceHandle& service);
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

  TempDir dir_;
  StandInAgent agent_{dir_.file("agent.sock")};
  std::atomic<int> calls_ = 0;  // of "get"
  std::deque<Handler> handlers_;
  ZAL_ServiceHandle service_ = nullptr;  // the client's
  ClientPtr client_ = makeClient(service_);
};

}  // namespace zal::test
