// A transport handle that listens, and plain sockets that connect to it.
#include <sys/resource.h>
#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "growth/growth.hpp"
#include "support/image.hpp"
#include "support/socket.hpp"
#include "support/temp_directory.hpp"
#include "support/timing.hpp"

namespace bench {

namespace {

/// The desk's usual limit is below what a thousand connections take.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

class Server {
 public:
  explicit Server(const std::string& path)
      : path_{path}, loop_{ZAL_EventLoop_Create(0, "server")}, ipc_{ZAL_IPC_Init(loop_)} {
    ZAL_IPC_AddClientConnectCallback(
        ipc_, [](ZAL_IpcClientContext client, void* self) { static_cast<Server*>(self)->welcome(client); }, this);
    ZAL_IPC_AddClientDisconnectCallback(
        ipc_, [](ZAL_IpcClientContext, void* self) { ++static_cast<Server*>(self)->gone_; }, this);
    ZAL_IPC_AddMessageCallback(
        ipc_,
        [](void* image, uint32_t length, void* self, void*) {
          static_cast<Server*>(self)->take({static_cast<char*>(image), length});
        },
        this);
    if (ZAL_IPC_ServerCreate(ipc_, ("file://" + path).c_str()) == 0) throw std::runtime_error{"no server"};
    ZAL_EventLoop_Run(loop_);
  }
  ~Server() {
    close();
    ZAL_IPC_ServerShutdown(ipc_);
    ZAL_EventLoop_Stop(loop_);
    ZAL_EventLoop_Destroy(loop_);
    ZAL_IPC_UnInit(ipc_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void open(int count) {
    sockets_.reserve(static_cast<std::size_t>(count));
    {
      const std::lock_guard hold{mutex_};
      clients_.reserve(static_cast<std::size_t>(count));
    }
    for (int i = 0; i < count; ++i) sockets_.push_back(connectTo(path_));
    awaitCount(met_, count);
  }

  /// Ends the connections, the oldest first.
  void close() {
    for (ZAL_IpcClientContext client : clients_) ZAL_IPC_CloseClient(client);
    awaitCount(gone_, static_cast<int>(clients_.size()));
    clients_.clear();
    sockets_.clear();
    met_ = gone_ = 0;
  }

  /// Seconds in which every client was sent as many images.
  double sendToEach(int images) {
    const auto start = Clock::now();
    for (int i = 0; i < images; ++i)
      for (ZAL_IpcClientContext client : clients_) {
        void* const copy = std::malloc(image_.size());
        std::memcpy(copy, image_.data(), image_.size());
        ZAL_IPC_ServerWrite(ipc_, client, copy, static_cast<uint32_t>(image_.size()));
      }
    // Read as it was written: the handle has one write under way, which a full socket would hold up.
    for (int i = 0; i < images; ++i)
      for (const Descriptor& socket : sockets_)
        if (readExactly(socket, image_.size()) != image_) throw std::runtime_error{"an image has changed"};
    return secondsSince(start);
  }

  /// Seconds in which as many images came from every client.
  double receiveFromEach(int images) {
    taken_ = 0;
    const auto start = Clock::now();
    for (int i = 0; i < images; ++i)
      for (const Descriptor& socket : sockets_) writeAll(socket, image_);
    awaitCount(taken_, images * static_cast<int>(sockets_.size()));
    return secondsSince(start);
  }

 private:
  void welcome(ZAL_IpcClientContext client) {
    const std::lock_guard hold{mutex_};
    clients_.push_back(client);
    ++met_;
  }

  void take(std::string_view image) {
    if (image == image_) ++taken_;
  }

  const std::string path_;
  const std::string image_{imageOf({.code = Code::kEvent, .service = "system", .name = "reading", .payload = "{}"})};
  ZAL_EventLoopContext loop_;
  ZAL_IpcHandle ipc_;
  std::mutex mutex_;
  std::vector<ZAL_IpcClientContext> clients_;
  std::vector<Descriptor> sockets_;
  std::atomic<int> met_{0};
  std::atomic<int> gone_{0};
  std::atomic<int> taken_{0};
};

}  // namespace

void measureConnectionGrowth(const Settings& settings, Report& report) {
  raiseDescriptorLimit();
  TempDirectory sockets;
  const std::vector<int> counts = sizes(1, 1000, settings);
  const auto table = [&](const char* what, const char* unit) {
    return Measure{std::string{"connections: "} + what, unit, settings.rounds};
  };
  const auto perImage = [&](double (Server::*exchange)(int)) {
    return atEach(counts, [&, exchange](int size) {
      const int images = scaled(10000 / size, settings.effort);
      Server server{sockets.next()};
      server.open(size);
      return (server.*exchange)(images) / images / size * 1e6;
    });
  };
  report.add(table("an image to each, each", "us"), perImage(&Server::sendToEach));
  report.add(table("an image from each, each", "us"), perImage(&Server::receiveFromEach));
  report.add(table("opened and closed, each", "us"), atEach(counts, [&](int size) {
               Server server{sockets.next()};
               const auto start = Clock::now();
               server.open(size);
               server.close();
               return secondsSince(start) / size * 1e6;
             }));
  report.add(table("heap of each", "bytes"), atEach(counts, [&](int size) {
               Server server{sockets.next()};
               const double before = heapBytes();
               server.open(size);
               return (heapBytes() - before) / size;
             }));
}

}  // namespace bench
