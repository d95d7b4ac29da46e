// Starting, stopping and destroying: in the middle of traffic, from a handler, and often.
#include <future>
#include <thread>

#include "tests/integration/client_with_agent.hpp"
#include "tests/support/process.hpp"

namespace zal::test {
namespace {

using ClientLifecycle = ClientWithAgent;

TEST_F(ClientLifecycle, StopsStartsAndIsDestroyedUnderTraffic) {
  std::atomic<bool> mayUseClient = true;
  std::atomic<bool> isOver = false;
  start();
  // Every millisecond a request to whatever connection there is, and at first an event of the client too.
  const auto requests = std::async(std::launch::async, [&] {
    for (int id = 0; !isOver; id = (id + 1) % 60000) {
      agent_.send({requestOf("get", id)});
      std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
  });
  auto events = std::async(std::launch::async, [&] {
    while (mayUseClient) {
      ZAL_Client_SendEvent(client_.get(), ZAL_Message_Create());
      std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
  });

  for (int round = 1; round <= 3; ++round) {
    const int before = calls_;
    EXPECT_TRUE(waitUntil([&] { return calls_ > before + 20; }));
    ZAL_Client_Stop(client_.get());
    EXPECT_TRUE(agent_.waitForOpen(0));
    ZAL_Client_Start(client_.get());
    EXPECT_TRUE(waitForSubscription(round + 1)) << "fetched and subscribed anew";
  }
  mayUseClient = false;
  events.wait();
  const int before = calls_;
  EXPECT_TRUE(waitUntil([&] { return calls_ > before + 20; }));
  client_.reset();
  EXPECT_TRUE(agent_.waitForOpen(0));
  isOver = true;
}

TEST_F(ClientLifecycle, IsStoppedByItsOwnHandlerButNotDestroyed) {
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

TEST_F(ClientLifecycle, LeavesNoDescriptorAndNoThreadBehind) {
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
