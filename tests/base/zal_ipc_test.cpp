// The transport between real sockets: a server and a client, each on the thread of a loop of its own, and raw peers
// that send what no client would.
#include <gtest/gtest.h>
#include <sys/un.h>
#include <zal/zal_ipc.h>
#include <zal/zal_log.h>

#include <array>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/zal_ipc/ipc.hpp"
#include "tests/support/ipc_side.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using zal::test::imageOf;
using zal::test::LogCapture;
using zal::test::RawPeer;
using zal::test::Side;
using zal::test::TempDir;
using zal::test::waitUntil;

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
    static_cast<void>(server_.client(1));  // accepted: the socket's queue of one is free for the next
  }

  Side server_;
  Side client_;
};

class BothTransports : public LoopbackPair, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    if (GetParam() == std::string{"tcp"}) url_ = "tcp://127.0.0.1:" + std::to_string(zal::test::freePort());
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
  writers.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread)
    writers.emplace_back([&, thread] {
      for (int number = 0; number < kImages; ++number) EXPECT_EQ(client_.write(imageNumber(thread, number)), 1);
    });
  for (std::thread& writer : writers) writer.join();
  ASSERT_TRUE(client_.hasReceived(std::size_t{kThreads} * kImages));

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

  server_.close(leaving);
  server_.settle();
  EXPECT_EQ(server_.queuedWrites(), 3 + 3) << "those of the stuck client and of the reader";
  server_.close(stuck);
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

TEST_F(LoopbackPair, ReportsNoLossOfAConnectionThatTheClientGaveUp) {
  client_.onLoop([&] {
    server_.close(server_.client(1));  // the end of the stream waits at the client when it disconnects
    EXPECT_TRUE(waitUntil([&] { return log_.contains("onCloseServerSide: ipcCtx->closePending=0"); }));
    ZAL_IPC_DisconnectServer(client_.ipc);
  });
  ASSERT_TRUE(waitUntil([&] { return log_.contains("onCloseClientSide: ipcCtx->closePending=0"); }));
  EXPECT_EQ(client_.disconnects, 0);
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
  EXPECT_EQ(ZAL_IPC_ClientWrite(nullptr, zal::test::heapCopy("x"), 1), 0);
  EXPECT_EQ(ZAL_IPC_ClientWrite(side.ipc, zal::test::heapCopy("x"), 0), 0);
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
    EXPECT_EQ(side.onLoop(ZAL_IPC_ClientConnectServer, bad.url), 0);
    EXPECT_EQ(log_.count(std::string{"ZAL_IPC_ClientConnectServer(): "} + bad.client), before + 1);
    if (bad.server == nullptr) continue;
    EXPECT_EQ(side.onLoop(ZAL_IPC_ServerCreate, bad.url), 0);
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
