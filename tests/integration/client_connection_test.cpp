// The connection to the agent: what is said first, how the client comes back, which callbacks tell of it, and how the
// client ends it. Broken connections and configurations of all kinds, over both transports, come from zal_chaos, ends
// amid traffic from zal_threads.
#include <mutex>

#include "tests/integration/client_with_agent.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/process.hpp"

namespace zal::test {
namespace {

/// What the callbacks of a client were told, in order: "connect 0;changed svc;".
class Events {
 public:
  void follow(ZAL_ClientHandle client) {
    ZAL_Client_AddConnectCallback(
        client, [](void* self, unsigned flag) { add(self, "connect " + std::to_string(flag)); }, this);
    ZAL_Client_AddDisconnectCallback(
        client, [](void* self, unsigned flag) { add(self, "disconnect " + std::to_string(flag)); }, this);
    ZAL_Client_AddConfigurationChangeCallback(
        client, [](void* self, const char* service) { add(self, "changed " + std::string{service}); }, this);
  }
  /// Waits for what comes next, after what was waited for before.
  [[nodiscard]] bool waitForNext(const std::string& event) {
    expected_ += event + ";";
    waitUntil([&] { return text().size() >= expected_.size(); });
    EXPECT_EQ(text(), expected_);
    return text() == expected_;
  }

 private:
  static void add(void* self, const std::string& event) {
    const std::lock_guard hold{static_cast<Events*>(self)->mutex_};
    static_cast<Events*>(self)->text_ += event + ";";
  }
  [[nodiscard]] std::string text() const {
    const std::lock_guard hold{mutex_};
    return text_;
  }

  mutable std::mutex mutex_;
  std::string text_;
  std::string expected_;  // the test's thread only
};

class ClientConnection : public ClientWithAgent {
 protected:
  ClientConnection() { events_.follow(client_.get()); }

  [[nodiscard]] std::string configuration() const {
    const HandlePtr copy{ZAL_Client_GetConfiguration(client_.get(), "")};
    return copy == nullptr ? "(none)" : textOf(copy.get());
  }

  Events events_;
};

TEST_F(ClientConnection, FetchesItsConfigurationAndThenSubscribesEverythingInOneImage) {
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
  EXPECT_TRUE(events_.waitForNext("connect 0"));
  EXPECT_EQ(configuration(), R"({"name":"gateway"})");
}

TEST_F(ClientConnection, TakesNotificationsAndTellsTheCallbacks) {
  start();
  const auto notify = [&](const char* name, const char* payload) {
    return agent_.send({{.code = ZAL_IPC_CMD_NOTIFY, .service = "profile", .name = name, .payload = payload}});
  };

  EXPECT_TRUE(events_.waitForNext("connect 0"));
  ASSERT_TRUE(notify("onProfileChanged", R"({"profile":1})"));
  EXPECT_TRUE(events_.waitForNext("changed profile"));
  ASSERT_TRUE(notify("onDisconnect", "{}"));
  EXPECT_TRUE(events_.waitForNext("disconnect 1"));
  EXPECT_EQ(configuration(), R"({"profile":1})");
  ASSERT_TRUE(notify("onSomethingElse", "{}"));
  ASSERT_TRUE(notify("onConnect", R"({"profile":2})"));
  EXPECT_TRUE(events_.waitForNext("connect 1"));
  EXPECT_EQ(configuration(), R"({"profile":2})");

  EXPECT_TRUE(agent_.waitFor([](const auto& received) { return received.size() == 3; })) << "subscribed once more";
  EXPECT_EQ(agent_.received()[2].image, agent_.received()[1].image);
}

TEST_F(ClientConnection, IsServedAndComesBackWhenTheAgentDiesInsideAnImage) {
  agent_.die();
  ZAL_Client_Start(client_.get());  // returns without a connection
  agent_.listen();
  ASSERT_TRUE(waitForSubscription(1));
  EXPECT_TRUE(events_.waitForNext("connect 0"));
  EXPECT_TRUE(call(requestOf("get", 1)));

  const std::string image = encodeImage({requestOf("get", 2)});
  ASSERT_TRUE(agent_.sendBytes(image.substr(0, image.size() / 2)));
  agent_.die();
  EXPECT_TRUE(events_.waitForNext("disconnect 1"));
  EXPECT_TRUE(waitUntil([&] { return configuration() == "(none)"; })) << "without a connection nothing is told";
  agent_.listen();

  ASSERT_TRUE(waitForSubscription(2));
  EXPECT_TRUE(events_.waitForNext("connect 0"));
  EXPECT_TRUE(call(requestOf("get", 3))) << "what was left of the old stream is forgotten";
}

TEST_F(ClientConnection, IsStoppedByItsOwnHandlerButNotDestroyed) {
  addMethod(service_, "end", [this](ZAL_MessageHandle, ZAL_MessageHandle) {
    ZAL_Client_Destroy(client_.get());  // refused: it would wait for this handler
    ZAL_Client_Stop(client_.get());
  });
  start();

  ASSERT_TRUE(agent_.send({requestOf("end", 1)}));

  ASSERT_TRUE(agent_.waitForEnd());
  ZAL_Client_Start(client_.get());
  EXPECT_TRUE(waitForSubscription(2));
  EXPECT_TRUE(call(requestOf("get", 2)));
}

TEST_F(ClientConnection, LeavesNoDescriptorAndNoThreadBehind) {
  int connection = 0;
  const auto live = [&] {
    ZAL_ServiceHandle service = nullptr;
    const ClientPtr client = makeClient(service);
    for (int i = 0; i < 2; ++i) {
      ZAL_Client_Stop(client.get());  // the first one has nothing to stop
      ZAL_Client_Start(client.get());
      ASSERT_TRUE(waitForSubscription(++connection));
      ASSERT_TRUE(call(requestOf("get", connection)));
    }
  };
  live();  // what the process makes once stays: the worker pool and what libuv keeps
  ASSERT_TRUE(agent_.waitForEnd());
  const long descriptors = entriesOf("/proc/self/fd");
  const long threads = entriesOf("/proc/self/task");

  for (int cycle = 0; cycle < 20; ++cycle) live();

  ASSERT_TRUE(agent_.waitForEnd());
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") <= descriptors; })) << entriesOf("/proc/self/fd");
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") <= threads; })) << entriesOf("/proc/self/task");
}

}  // namespace
}  // namespace zal::test
