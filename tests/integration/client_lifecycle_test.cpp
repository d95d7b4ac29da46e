// Starting, stopping and destroying: from a handler, and often. In the middle of traffic zal_threads does it.
#include "tests/integration/client_with_agent.hpp"
#include "tests/support/process.hpp"

namespace zal::test {
namespace {

using ClientLifecycle = ClientWithAgent;

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
