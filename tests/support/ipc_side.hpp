// What tests of the transport stand on: one side of it on a loop of its own. The library's handle is used from the
// test's thread and seen from the loop's; all here is safe for both.
#pragma once

#include <gtest/gtest.h>
#include <zal/zal_ipc.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/loop.hpp"
#include "tests/support/wait.hpp"
#include "tests/support/wire_image.hpp"

namespace zal::test {

/// An image of one record; the number travels as its request id.
inline std::string imageOf(const std::string& payload, int number = 0) {
  return encodeImage({{1, "service", "name", "", payload, number}});
}

inline void* heapCopy(const std::string& bytes) {
  return std::memcpy(std::malloc(bytes.size()), bytes.data(), bytes.size());
}

/// One handle on a running loop. The destructor takes it down in the order of the client runtime.
class Side {
 public:
  Side() {
    ZAL_IPC_AddMessageCallback(ipc, onMessage, this);
    ZAL_IPC_AddServerConnectCallback(
        ipc, [](void* self) { ++of(self).connects; }, this);
    ZAL_IPC_AddServerDisconnectCallback(
        ipc, [](void* self) { ++of(self).disconnects; }, this);
    ZAL_IPC_AddClientConnectCallback(ipc, onClient, this);
    ZAL_IPC_AddClientDisconnectCallback(ipc, onClientGone, this);
    ZAL_EventLoop_Run(loop);
  }
  ~Side() {
    ZAL_IPC_DisconnectServer(ipc);
    for (ZAL_IpcClientContext client : clients()) close(client);
    ZAL_IPC_ServerShutdown(ipc);
    release(true);
  }

  /// Ends loop and handle, in one of the two orders, with whatever is still open.
  void release(bool destroyFirst) {
    const ZAL_EventLoopContext oldLoop = std::exchange(loop, nullptr);
    const ZAL_IpcHandle oldIpc = std::exchange(ipc, nullptr);
    if (!destroyFirst) ZAL_IPC_UnInit(oldIpc);
    if (oldLoop != nullptr) ZAL_EventLoop_Destroy(oldLoop);  // stops it first
    if (destroyFirst) ZAL_IPC_UnInit(oldIpc);
    clients_.clear();  // no other thread is left
  }

  void onLoop(const std::function<void()>& body) { runOnLoop(loop, body); }
  /// What has arrived at the loop's sockets is read.
  void settle() {
    onLoop([] {});
  }

  int listen(const std::string& url) { return open(ZAL_IPC_ServerCreate, url); }
  int connect(const std::string& url) { return open(ZAL_IPC_ClientConnectServer, url); }
  bool connected(const std::string& url) {
    const int before = connects;
    return connect(url) == 1 && waitUntil([&] { return connects == before + 1; });
  }
  int write(const std::string& image) {
    return ZAL_IPC_ClientWrite(ipc, heapCopy(image), static_cast<std::uint32_t>(image.size()));
  }
  void close(ZAL_IpcClientContext client) {
    {
      const std::lock_guard hold{lock_};
      if (std::erase(clients_, client) == 0) return;
    }
    ZAL_IPC_CloseClient(client);
  }
  void writeTo(ZAL_IpcClientContext client, const std::string& image) {
    ZAL_IPC_ServerWrite(ipc, client, heapCopy(image), static_cast<std::uint32_t>(image.size()));
  }

  std::vector<std::string> received() const {
    const std::lock_guard hold{lock_};
    return received_;
  }
  bool hasReceived(std::size_t count) const {
    return waitUntil([&] { return received().size() >= count; });
  }
  std::vector<ZAL_IpcClientContext> clients() const {
    const std::lock_guard hold{lock_};
    return clients_;
  }
  /// The newest accepted connection, when there are `count`.
  ZAL_IpcClientContext client(std::size_t count) const {
    EXPECT_TRUE(waitUntil([&] { return clients().size() == count; }));
    return clients().back();
  }

  ZAL_EventLoopContext loop = ZAL_EventLoop_Create(0, "ipc-test");
  ZAL_IpcHandle ipc = ZAL_IPC_Init(loop);
  std::atomic<int> connects{0};
  std::atomic<int> disconnects{0};
  std::atomic<int> clientsGone{0};
  std::function<void(const std::string&, void* source)> onImage;  // on the loop thread; set before anything arrives

 private:
  static Side& of(void* self) { return *static_cast<Side*>(self); }
  int open(int (*function)(ZAL_IpcHandle, const char*), const std::string& url) {
    int result = -1;
    onLoop([&] { result = function(ipc, url.c_str()); });
    return result;
  }
  static void onMessage(void* image, uint32_t length, void* self, void* source) {
    const std::string copy{static_cast<const char*>(image), length};
    if (of(self).onImage) of(self).onImage(copy, source);
    const std::lock_guard hold{of(self).lock_};
    of(self).received_.push_back(copy);
  }
  static void onClient(ZAL_IpcClientContext client, void* self) {
    const std::lock_guard hold{of(self).lock_};
    of(self).clients_.push_back(client);
  }
  static void onClientGone(ZAL_IpcClientContext client, void* self) {
    of(self).close(client);
    ++of(self).clientsGone;
  }

  mutable std::mutex lock_;
  std::vector<std::string> received_;
  std::vector<ZAL_IpcClientContext> clients_;
};

}  // namespace zal::test
