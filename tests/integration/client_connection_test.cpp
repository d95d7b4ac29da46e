// The connection to the agent: what is said first, how the client comes back, and which callbacks tell of it.
#include <algorithm>
#include <mutex>
#include <vector>

#include "tests/integration/client_with_agent.hpp"

namespace zal::test {
namespace {

/// What the callbacks of a client were told, in order: "connect 0", "changed svc".
class Events {
 public:
  void follow(ZAL_ClientHandle client) {
    ZAL_Client_AddConnectCallback(
        client, [](void* self, unsigned flag) { add(self, "connect", flag); }, this);
    ZAL_Client_AddDisconnectCallback(
        client, [](void* self, unsigned flag) { add(self, "disconnect", flag); }, this);
    ZAL_Client_AddConfigurationChangeCallback(
        client,
        [](void* self, const char* service) { static_cast<Events*>(self)->add("changed " + std::string{service}); },
        this);
  }
  [[nodiscard]] bool waitFor(const std::vector<std::string>& expected) const {
    waitUntil([&] { return list().size() >= expected.size(); });
    EXPECT_EQ(list(), expected);
    return list() == expected;
  }

 private:
  static void add(void* self, const std::string& what, unsigned flag) {
    static_cast<Events*>(self)->add(what + " " + std::to_string(flag));
  }
  void add(std::string event) {
    const std::lock_guard hold{mutex_};
    list_.push_back(std::move(event));
  }
  [[nodiscard]] std::vector<std::string> list() const {
    const std::lock_guard hold{mutex_};
    return list_;
  }

  mutable std::mutex mutex_;
  std::vector<std::string> list_;
};

class ClientConnection : public ClientWithAgent {
 protected:
  ClientConnection() { events_.follow(client_.get()); }

  [[nodiscard]] std::string configuration() const {
    ZAL_ObjectHandle copy = ZAL_Client_GetConfiguration(client_.get(), "");
    if (copy == nullptr) return "(none)";
    char* text = ZAL_Object_DumpOutput(copy);
    std::string result{text};
    std::free(text);
    ZAL_Object_Destroy(copy);
    return result;
  }

  Events events_;
};
ZAL_OVER_BOTH_TRANSPORTS(ClientConnection);

TEST_P(ClientConnection, FetchesItsConfigurationAndThenSubscribesEverythingInOneImage) {
  ZAL_ServiceHandle second = ZAL_Service_Create("second");
  addGet(second);
  addMethod(service_, "set", {});
  ZAL_Client_AddService(client_.get(), second);
  agent_.answerConfiguration(R"({"name":"gateway"})");

  start();

  const auto received = agent_.received();
  ASSERT_EQ(received.size(), 2U);
  EXPECT_EQ(received[0].image, (WireImage{{.code = ZAL_IPC_CMD_GET_CONFIG, .service = "retrieveConfig"}}));
  // Services and methods are walked newest first, and an image holds its records last added first.
  EXPECT_EQ(received[1].image, (WireImage{{.code = ZAL_IPC_CMD_SUBSCRIBE, .service = "svc", .name = "get"},
                                          {.code = ZAL_IPC_CMD_SUBSCRIBE, .service = "svc", .name = "set"},
                                          {.code = ZAL_IPC_CMD_SUBSCRIBE, .service = "second", .name = "get"}}));
  EXPECT_TRUE(events_.waitFor({"connect 0"}));
  EXPECT_EQ(configuration(), R"({"name":"gateway"})");
}

TEST_P(ClientConnection, IsCompletedByAnEmptyOrBrokenConfigurationToo) {
  agent_.answerConfiguration(GetParam() == Transport::kUnix ? "" : "{broken");

  start();

  EXPECT_TRUE(events_.waitFor({"connect 0"}));
  EXPECT_EQ(configuration(), "(none)");
}

TEST_P(ClientConnection, TakesNotificationsAndTellsTheCallbacks) {
  start();
  const auto notify = [&](const char* name, const char* payload) {
    return agent_.send({{.code = ZAL_IPC_CMD_NOTIFY, .service = "profile", .name = name, .payload = payload}});
  };

  ASSERT_TRUE(notify("onProfileChanged", R"({"profile":1})"));
  EXPECT_TRUE(events_.waitFor({"connect 0", "changed profile"}));
  EXPECT_EQ(configuration(), R"({"profile":1})");
  ASSERT_TRUE(notify("onDisconnect", "{}"));
  EXPECT_TRUE(events_.waitFor({"connect 0", "changed profile", "disconnect 1"}));
  EXPECT_EQ(configuration(), R"({"profile":1})");
  ASSERT_TRUE(notify("onSomethingElse", "{}"));
  ASSERT_TRUE(notify("onConnect", R"({"profile":2})"));
  EXPECT_TRUE(events_.waitFor({"connect 0", "changed profile", "disconnect 1", "connect 1"}));
  EXPECT_EQ(configuration(), R"({"profile":2})");

  EXPECT_TRUE(agent_.waitFor([](const auto& received) { return received.size() == 3; })) << "subscribed once more";
  EXPECT_EQ(agent_.received()[2].image, agent_.received()[1].image);
}

TEST_P(ClientConnection, ComesBackWithItsSubscriptionsWhenTheAgentDiesInsideAnImage) {
  start();
  const std::string image = encodeImage({requestOf("get", 1)});

  ASSERT_TRUE(agent_.sendBytes(image.substr(0, image.size() / 2)));
  agent_.die();
  EXPECT_TRUE(events_.waitFor({"connect 0", "disconnect 1"}));
  EXPECT_TRUE(waitUntil([&] { return configuration() == "(none)"; })) << "without a connection nothing is told";
  agent_.listen();

  ASSERT_TRUE(waitForSubscription(agent_.waitForOpen(1) ? agent_.accepted() : -1));
  EXPECT_TRUE(events_.waitFor({"connect 0", "disconnect 1", "connect 0"}));
  EXPECT_TRUE(call(requestOf("get", 2))) << "what was left of the old stream is forgotten";
}

TEST_P(ClientConnection, ComesBackAfterAReset) {
  start();

  agent_.resetConnections();

  ASSERT_TRUE(waitForSubscription(2));
  EXPECT_TRUE(call(requestOf("get", 1)));
}

TEST_P(ClientConnection, WaitsForAnAgentThatComesLater) {
  agent_.die();

  ZAL_Client_Start(client_.get());  // returns without a connection
  agent_.listen();

  ASSERT_TRUE(waitForSubscription(1));
  EXPECT_TRUE(events_.waitFor({"connect 0"}));
}

}  // namespace
}  // namespace zal::test
