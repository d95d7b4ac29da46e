// Starting, stopping and destroying: in the middle of traffic, from a handler, and often.
#include <filesystem>
#include <thread>

#include "tests/integration/client_with_agent.hpp"

namespace zal::test {
namespace {

long entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator{directory}, std::filesystem::directory_iterator{});
}

class ClientLifecycle : public ClientWithAgent {
 protected:
  /// Every millisecond until the scope ends: a request to whatever connection there is, and an event of the client.
  class Traffic {
   public:
    explicit Traffic(StandInAgent& agent, ZAL_ClientHandle client = nullptr) {
      sender_ = std::thread{[this, &agent, client] {
        for (int id = 0; !isOver_; id = (id + 1) % 60000) {
          agent.send({requestOf("get", id)});
          if (client != nullptr) ZAL_Client_SendEvent(client, ZAL_Message_Create());
          std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
      }};
    }
    ~Traffic() {
      isOver_ = true;
      sender_.join();
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;

   private:
    std::atomic<bool> isOver_ = false;
    std::thread sender_;
  };
};
ZAL_OVER_BOTH_TRANSPORTS(ClientLifecycle);

TEST_P(ClientLifecycle, StopsUnderTrafficAndStartsAgain) {
  start();
  const Traffic traffic{agent_, client_.get()};

  for (int round = 1; round <= 3; ++round) {
    const int before = calls_;
    ASSERT_TRUE(waitUntil([&] { return calls_ > before + 20; }));
    ZAL_Client_Stop(client_.get());
    ASSERT_TRUE(agent_.waitForOpen(0));
    ZAL_Client_Start(client_.get());
    ASSERT_TRUE(waitForSubscription(round + 1)) << "fetched and subscribed anew";
  }
}

TEST_P(ClientLifecycle, IsDestroyedUnderTraffic) {
  start();
  const Traffic traffic{agent_};
  ASSERT_TRUE(waitUntil([&] { return calls_ > 20; }));

  client_.reset();

  EXPECT_TRUE(agent_.waitForOpen(0));
}

TEST_P(ClientLifecycle, IsStoppedByItsOwnHandlerButNotDestroyed) {
  addMethod(service_, "end", [this](ZAL_MessageHandle, ZAL_MessageHandle) {
    ZAL_Client_Destroy(client_.get());  // refused: it would wait for this handler
    ZAL_Client_Stop(client_.get());
  });
  start();

  ASSERT_TRUE(agent_.send({requestOf("end", 1)}));

  ASSERT_TRUE(agent_.waitForOpen(0));
  ZAL_Client_Start(client_.get());
  EXPECT_TRUE(waitForSubscription(2));
  EXPECT_TRUE(call(requestOf("get", 2)));
}

TEST_P(ClientLifecycle, LeavesNoDescriptorAndNoThreadBehind) {
  int connection = 0;
  const auto live = [&] {
    ClientPtr client = makeClient(agent_.url());
    ZAL_ServiceHandle service = ZAL_Service_Create("svc");
    addGet(service);
    ZAL_Client_AddService(client.get(), service);
    for (int i = 0; i < 2; ++i) {
      if (i > 0) ZAL_Client_Stop(client.get());
      ZAL_Client_Start(client.get());
      ASSERT_TRUE(waitForSubscription(++connection));
      ASSERT_TRUE(call(requestOf("get", connection)));
    }
  };
  live();  // what the process makes once stays: the worker pool and what libuv keeps
  ASSERT_TRUE(agent_.waitForOpen(0));
  const long descriptors = entriesOf("/proc/self/fd");
  const long threads = entriesOf("/proc/self/task");

  for (int cycle = 0; cycle < 20; ++cycle) live();

  ASSERT_TRUE(agent_.waitForOpen(0));
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") <= descriptors; })) << entriesOf("/proc/self/fd");
  EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/task") <= threads; })) << entriesOf("/proc/self/task");
}

}  // namespace
}  // namespace zal::test
