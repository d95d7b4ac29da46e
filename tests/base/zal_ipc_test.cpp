// The transport between real sockets: a server and a client, each on the thread of a loop of its own, and raw peers
// that send what no client would.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zal/zal_ipc.h>
#include <zal/zal_log.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/zal_ipc/ipc.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"
#include "tests/support/wait.hpp"
#include "tests/support/wire_image.hpp"

namespace {

using zal::test::LogCapture;
using zal::test::TempDir;
using zal::test::waitUntil;

/// An image of one record; the number travels as its request id.
std::string imageOf(const std::string& payload, int number = 0) {
  return zal::test::encodeImage({{1, "service", "name", "", payload, number}});
}

void* heapCopy(const std::string& bytes) {
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
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  /// Ends loop and handle, in one of the two orders, with whatever is still open.
  void release(bool destroyFirst) {
    const ZAL_EventLoopContext oldLoop = std::exchange(loop, nullptr);
    const ZAL_IpcHandle oldIpc = std::exchange(ipc, nullptr);
    {
      const std::lock_guard hold{lock_};
      clients_.clear();
    }
    if (!destroyFirst) ZAL_IPC_UnInit(oldIpc);
    if (oldLoop != nullptr) ZAL_EventLoop_Stop(oldLoop);
    if (oldLoop != nullptr) ZAL_EventLoop_Destroy(oldLoop);
    if (destroyFirst) ZAL_IPC_UnInit(oldIpc);
  }

  /// Runs `body` on the loop thread and waits for it. What has arrived at the loop's sockets before is read before.
  void onLoop(const std::function<void()>& body) {
    struct Job {
      const std::function<void()>& body;
      std::atomic<bool> isDone;
    } job{body, false};
    const auto run = [](uv_timer_t* timer) {
      auto& self = *static_cast<Job*>(ZAL_EventLoop_GetTimerContext(timer));
      self.body();
      self.isDone = true;
    };
    uv_timer_t* const timer = ZAL_EventLoop_StartTimer(loop, run, 0, 0, &job);
    EXPECT_TRUE(waitUntil([&] { return job.isDone.load(); }));
    ZAL_EventLoop_StopTimer(loop, timer);
  }
  void settle() {
    onLoop([] {});
  }

  int listen(const std::string& url) {
    int result = 0;
    onLoop([&] { result = ZAL_IPC_ServerCreate(ipc, url.c_str()); });
    return result;
  }
  int connect(const std::string& url) {
    int result = 0;
    onLoop([&] { result = ZAL_IPC_ClientConnectServer(ipc, url.c_str()); });
    return result;
  }
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
    return waitUntil([&] {
      const std::lock_guard hold{lock_};
      return received_.size() >= count;
    });
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

/// A peer that speaks bytes.
class RawPeer {
 public:
  explicit RawPeer(const std::string& path) : socket_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~RawPeer() { ::close(socket_); }
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  void send(const std::string& bytes) const {
    EXPECT_EQ(::send(socket_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }
  std::string receive(std::size_t size) const {
    std::string bytes(size, '\0');
    const ssize_t count = ::recv(socket_, bytes.data(), size, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }

 private:
  int socket_;
};

/// A port that was free a moment ago.
int freePort() {
  const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(::bind(probe, reinterpret_cast<const sockaddr*>(&address), size), 0);
  EXPECT_EQ(::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size), 0);
  ::close(probe);
  return ntohs(address.sin_port);
}

/// Where the two sides meet. Members that outlive the sides come first.
class IpcTransport : public ::testing::Test {
 protected:
  IpcTransport() { ZAL_Log_SetLevel(ZAL_LOG_TRACE); }

  TempDir directory_;
  LogCapture log_;
  std::string path_ = directory_.file("ipc.sock");
  std::string url_ = "file://" + path_;
};

/// A server and a client joined by a socket.
class LoopbackPair : public IpcTransport {
 protected:
  void SetUp() override { join(); }
  void join() {
    ASSERT_EQ(server_.listen(url_), 1);
    ASSERT_TRUE(client_.connected(url_));
  }

  Side server_;
  Side client_;
};

class BothTransports : public LoopbackPair, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (GetParam() == std::string{"tcp"}) url_ = "tcp://127.0.0.1:" + std::to_string(freePort());
    join();
  }
};
INSTANTIATE_TEST_SUITE_P(Ipc, BothTransports, ::testing::Values("file", "tcp"),
                         [](const auto& kind) { return std::string{kind.param}; });

TEST_P(BothTransports, CarriesImagesOfFourThreadsBothWaysWholeAndInOrder) {
  constexpr int kThreads = 4;
  constexpr int kImages = 250;
  server_.onImage = [&](const std::string& image, void* source) {
    server_.writeTo(static_cast<ZAL_IpcClientContext>(source), image);
  };
  const auto imageNumber = [](int thread, int number) {
    const std::size_t size = number == 100 ? 1000000 : static_cast<std::size_t>(number) * 40;  // one beyond all buffers
    return imageOf(std::string(size, static_cast<char>('a' + number % 26)), thread);
  };

  std::vector<std::thread> writers;
  for (int thread = 0; thread < kThreads; ++thread)
    writers.emplace_back([&, thread] {
      for (int number = 0; number < kImages; ++number) EXPECT_EQ(client_.write(imageNumber(thread, number)), 1);
    });
  for (std::thread& writer : writers) writer.join();
  ASSERT_TRUE(client_.hasReceived(kThreads * kImages));

  for (const Side* side : {&server_, &client_}) {
    std::array<int, kThreads> next{};
    for (const std::string& image : side->received()) {
      const int thread = zal::test::decodeImage(image).value().front().requestId;
      ASSERT_EQ(image, imageNumber(thread, next.at(static_cast<std::size_t>(thread))++));
    }
    EXPECT_EQ(next, (std::array<int, kThreads>{kImages, kImages, kImages, kImages}));
  }
}

TEST_P(BothTransports, TellsTheClientOnceThatTheServerIsGoneAndConnectsAgain) {
  server_.release(true);
  ASSERT_TRUE(waitUntil([&] { return log_.contains("onCloseClientSide: ipcCtx->closePending=0"); }));
  EXPECT_EQ(client_.write(imageOf("nobody listens")), 0);
  EXPECT_EQ(client_.connect(url_), 1);
  ASSERT_TRUE(waitUntil([&] { return client_.disconnects == 2; }));

  Side heir;
  ASSERT_EQ(heir.listen(url_), 1);
  ASSERT_TRUE(client_.connected(url_));
  EXPECT_EQ(client_.write(imageOf("again")), 1);

  EXPECT_TRUE(heir.hasReceived(1));
  EXPECT_EQ(client_.disconnects, 2);
}

TEST_F(LoopbackPair, DeliversTwoImagesSplitAtAnyByte) {
  const RawPeer peer{path_};
  const std::string pair = imageOf("first") + imageOf("second one");
  for (std::size_t at = 0; at <= pair.size(); ++at) {
    peer.send(pair.substr(0, at));
    server_.settle();
    peer.send(pair.substr(at));
    ASSERT_TRUE(server_.hasReceived(2 * at + 2)) << at;
  }
  const std::vector<std::string> images = server_.received();
  for (std::size_t i = 0; i < images.size(); ++i) EXPECT_EQ(images[i], imageOf(i % 2 == 0 ? "first" : "second one"));
}

TEST_F(LoopbackPair, GoesOnWithAFreshImageAfterGarbage) {
  const RawPeer peer{path_};
  peer.send("this is no image at all" + imageOf("dropped with it"));
  ASSERT_TRUE(waitUntil([&] { return log_.contains("tpl prefix invalid\n"); }));
  peer.send(imageOf("fresh"));

  ASSERT_TRUE(server_.hasReceived(1));
  EXPECT_EQ(server_.received().front(), imageOf("fresh"));
}

TEST_F(LoopbackPair, DropsWhatNobodyAskedForAndSaysSo) {
  ZAL_Log_SetLevel(ZAL_LOG_ERROR);  // a line is whole while no other thread writes one
  for (Side* side : {&server_, &client_})
    side->onLoop([&] { ZAL_IPC_AddMessageCallback(side->ipc, nullptr, nullptr); });

  server_.writeTo(server_.client(1), imageOf("to the client"));
  EXPECT_TRUE(waitUntil([&] {
    return log_.contains(
        "ZAL_IPC_OnReadFromServer(): recv data from server, but there is not ipc msg callback client=0x");
  }));
  client_.write(imageOf("to the server"));
  EXPECT_TRUE(waitUntil([&] {
    return log_.contains(
        "on_read_from_client_cb_local(): recv data from client, but there is not ipc msg callback client=0x");
  }));
  EXPECT_EQ(log_.count(" core/base/zal_ipc("), 2);
}

TEST_F(LoopbackPair, ClosingAClientDropsItsWritesAndKeepsTheOthers) {
  const ZAL_IpcClientContext reader = server_.client(1);
  const RawPeer deaf{path_};
  const ZAL_IpcClientContext stuck = server_.client(2);
  const RawPeer visitor{path_};
  const ZAL_IpcClientContext leaving = server_.client(3);
  for (int i = 0; i < 3; ++i) server_.writeTo(stuck, imageOf(std::string(4000000, 'x')));
  server_.settle();  // the first of them is in flight
  for (int i = 0; i < 3; ++i)
    for (const ZAL_IpcClientContext client : {leaving, reader, leaving}) server_.writeTo(client, imageOf("small"));

  for (const ZAL_IpcClientContext client : {leaving, stuck}) {
    server_.close(client);
    server_.settle();
  }
  ASSERT_TRUE(client_.hasReceived(3));
  server_.writeTo(stuck, imageOf("refused"));
  EXPECT_EQ(log_.count("write_cleanup: req="), 1)
      << "the write in flight ends with an error, the waiting ones silently";
  EXPECT_EQ(visitor.receive(1), "");
}

TEST_F(LoopbackPair, ClosesAClientOnceAndReportsTheSecondClose) {
  const ZAL_IpcClientContext accepted = server_.client(1);
  server_.onLoop([&] {
    server_.close(accepted);
    ZAL_IPC_CloseClient(accepted);
  });
  ASSERT_TRUE(waitUntil([&] { return client_.disconnects == 1; }));
  ASSERT_TRUE(waitUntil([&] { return log_.contains("onCloseServerSide: ipcCtx->closePending=0"); }));
  EXPECT_EQ(log_.count("double close? FIX-ME!!!"), 1);
  EXPECT_EQ(server_.clientsGone, 1);
}

TEST_F(LoopbackPair, KeepsAConnectionApartFromTheOneThatTheMessageCallbackCloses) {
  client_.onImage = [&](const std::string& image, void* /*source*/) {
    if (image != imageOf("reconnect")) return;
    ZAL_IPC_DisconnectServer(client_.ipc);
    EXPECT_EQ(ZAL_IPC_ClientConnectServer(client_.ipc, url_.c_str()), 1);
  };
  server_.writeTo(server_.client(1), imageOf("reconnect") + imageOf("not delivered") + "tpl");
  ASSERT_TRUE(waitUntil([&] { return client_.connects == 2 && server_.clientsGone == 1; }));
  server_.writeTo(server_.client(1), imageOf("whole"));

  ASSERT_TRUE(client_.hasReceived(2));
  EXPECT_EQ(client_.received().back(), imageOf("whole"));
  EXPECT_EQ(client_.disconnects, 0);
  server_.settle();
  EXPECT_EQ(server_.clientsGone, 1) << "told at the end of the stream, and not again at its close";
}

TEST_F(LoopbackPair, WakesTheHandleThatIsBoundToTheLoopNow) {
  Side other;
  ZAL_IPC_UnInit(std::exchange(other.ipc, nullptr));
  ZAL_EventLoop_AsyncSend(other.loop);
  other.settle();
  other.ipc = ZAL_IPC_Init(other.loop);
  ASSERT_EQ(other.connect(url_), 1);
  ASSERT_TRUE(waitUntil([&] { return other.write(imageOf("hello")) == 1; }));
  EXPECT_TRUE(server_.hasReceived(1));
}

TEST_F(IpcTransport, RefusesAndFreesWritesThatCannotLeave) {
  Side side;
  EXPECT_EQ(side.write(imageOf("not connected")), 0);
  EXPECT_EQ(ZAL_IPC_ClientWrite(nullptr, heapCopy("x"), 1), 0);
  EXPECT_EQ(ZAL_IPC_ClientWrite(side.ipc, heapCopy("x"), 0), 0);
  side.writeTo(nullptr, imageOf("to nobody"));
}

TEST_F(IpcTransport, ConnectsOneAtATime) {
  zal::test::writeFile(path_, "a file of an earlier run");
  ZAL_Log_SetLevel(ZAL_LOG_ERROR);
  Side server;
  Side client;
  ASSERT_EQ(server.listen(url_), 1);
  EXPECT_EQ(server.listen(url_), 0);
  client.onLoop([&] {
    EXPECT_EQ(ZAL_IPC_ClientConnectServer(client.ipc, url_.c_str()), 1);
    EXPECT_EQ(ZAL_IPC_ClientConnectServer(client.ipc, url_.c_str()), 0);
  });
  ASSERT_TRUE(waitUntil([&] { return client.connects == 1; }));
  EXPECT_EQ(log_.count("ZAL_IPC_ClientConnectServer(): A connect operation is already in progress\n"), 1);
  EXPECT_EQ(client.connect(url_), 0);
  EXPECT_EQ(log_.count("ZAL_IPC_ClientConnectServer(): Already connected\n"), 1);
}

TEST_F(IpcTransport, EndsEveryConnectInOneOfTheTwoCallbacks) {
  constexpr int kRounds = 50;
  Side server;
  Side client;
  ASSERT_EQ(server.listen(url_), 1);
  for (int round = 1; round <= kRounds; ++round) {
    client.onLoop([&] {
      EXPECT_EQ(ZAL_IPC_ClientConnectServer(client.ipc, url_.c_str()), 1);
      if (round % 2 == 0) ZAL_IPC_DisconnectServer(client.ipc);
    });
    ZAL_IPC_DisconnectServer(client.ipc);
    ZAL_IPC_DisconnectServer(client.ipc);
    ASSERT_TRUE(waitUntil([&] { return client.connects + client.disconnects == round; }));
    client.settle();  // the connect callback has returned
    ZAL_IPC_DisconnectServer(client.ipc);
  }
  EXPECT_GE(client.disconnects, kRounds / 2);
  EXPECT_EQ(client.connects + client.disconnects, kRounds);
}

struct BadUrl {
  const char* url;
  const char* client;  // what ZAL_IPC_ClientConnectServer logs
  const char* server;  // what ZAL_IPC_ServerCreate logs, null when it listens
};

TEST_F(IpcTransport, RejectsUrlsThatLeadNowhere) {
  const std::string longPath = "file:///tmp/" + std::string(sizeof(sockaddr_un::sun_path), 'x');
  const BadUrl urls[] = {
      {nullptr, "Invalid IPC url\n", "Inavlid IPC URL\n"},
      {"tcp://", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://:4000", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://127.0.0.1", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://127.0.0.1:0", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://127.0.0.1:65536", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://127.0.0.1:4294967377", "Invalid IPC url\n", "invalid ipc url\n"},
      {"tcp://localhost:4000", "Invalid IPC url\n", "invalid ipc url\n"},
      {longPath.c_str(), "Invalid IPC url\n", "invalid ipc url\n"},
      {"%%", "Invalid IPC url\n", nullptr},
      {"ftp://127.0.0.1/x", "Unsupported URL protocol, use file:// or tcp://, url=ftp://127.0.0.1/x\n", nullptr},
  };
  ZAL_Log_SetLevel(ZAL_LOG_ERROR);
  Side side;
  for (const BadUrl& bad : urls) {
    SCOPED_TRACE(bad.url == nullptr ? "null" : bad.url);
    const int before = log_.count(std::string{"ZAL_IPC_ClientConnectServer(): "} + bad.client);
    side.onLoop([&] { EXPECT_EQ(ZAL_IPC_ClientConnectServer(side.ipc, bad.url), 0); });
    EXPECT_EQ(log_.count(std::string{"ZAL_IPC_ClientConnectServer(): "} + bad.client), before + 1);
    if (bad.server == nullptr) continue;
    side.onLoop([&] { EXPECT_EQ(ZAL_IPC_ServerCreate(side.ipc, bad.url), 0); });
    EXPECT_TRUE(log_.contains(std::string{"ZAL_IPC_ServerCreate(): "} + bad.server));
  }
  EXPECT_EQ(side.disconnects, 0);
  EXPECT_STREQ(zal::ipc::listenEndpoint("udp://127.0.0.1:4000")->path, "/tmp/zalIPC.sock");
}

TEST_F(IpcTransport, SurvivesAListenerThatCannotListen) {
  Side server;
  EXPECT_EQ(server.listen("file://" + directory_.file("missing/ipc.sock")), 1);
  EXPECT_TRUE(log_.contains("cannot listen: "));
  ZAL_IPC_ServerShutdown(server.ipc);
  ZAL_IPC_ServerShutdown(server.ipc);
  EXPECT_TRUE(waitUntil([&] { return log_.contains("onCloseServerListener: ipcCtx->closePending=0"); }));
}

/// Open connections, with a write in flight and others waiting, are released in every order that a caller may choose;
/// the leak and address checkers see what is left.
TEST_F(IpcTransport, LeavesNothingBehindInAnyOrderOfRelease) {
  for (const bool disconnectFirst : {true, false}) {
    for (const bool destroyFirst : {true, false}) {
      Side client;
      Side server;
      ASSERT_EQ(server.listen(url_), 1);
      const RawPeer deaf{path_};
      ZAL_IpcClientContext const stuck = server.client(1);
      ASSERT_TRUE(client.connected(url_));
      for (int i = 0; i < 3; ++i) server.writeTo(stuck, imageOf(std::string(4000000, 'x')));
      EXPECT_EQ(client.write(imageOf("x") + "tpl"), 1);
      server.settle();
      if (disconnectFirst) ZAL_IPC_DisconnectServer(client.ipc);
      client.release(destroyFirst);
      server.release(destroyFirst);
    }
  }
}

TEST_F(LoopbackPair, UnInitGivesUpOnACloseAfterFiveSeconds) {
  ZAL_EventLoop_Stop(client_.loop);
  ZAL_IPC_DisconnectServer(client_.ipc);
  client_.release(false);
  EXPECT_EQ(log_.count("ZAL_IPC_UnInit: ipcHandle->closePending=1 loop="), 10);
  EXPECT_EQ(log_.count("ZAL_IPC_UnInit: ipcHandle->closePending=1 timeout\n"), 1);
}

}  // namespace
