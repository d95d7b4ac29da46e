// Scenarios of the event loop and of the transport.
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>

#include "memory/scenario.hpp"
#include "support/waiting.hpp"

namespace faults {

namespace {

using Loop = Owned<ZAL_EventLoopContext, ZAL_EventLoop_Destroy>;

/// How often each of a loop's callbacks came.
struct Calls {
  std::atomic<int> timer{0};
  std::atomic<int> poll{0};
  std::atomic<int> async{0};
  std::atomic<int> idle{0};
  std::atomic<int> work{0};
  std::atomic<int> closed{0};

  static Calls& of(void* context) noexcept { return *static_cast<Calls*>(context); }
};

void onTimer(uv_timer_t* timer) {
  ++Calls::of(ZAL_EventLoop_GetTimerContext(timer)).timer;
}
void onPoll(uv_poll_t* poll, int /*status*/, int /*events*/) {
  ++Calls::of(ZAL_EventLoop_GetPollContext(poll)).poll;
  uv_os_fd_t file = -1;
  std::array<char, 8> bytes{};
  // Taken, else the loop never waits.
  FAULTS_REQUIRE(uv_fileno(reinterpret_cast<uv_handle_t*>(poll), &file) == 0 &&
                 read(file, bytes.data(), bytes.size()) > 0);
}
void onAsync(uv_async_t* async) {
  ++Calls::of(ZAL_EventLoop_GetAsyncContext(async)).async;
}
void onIdle(uv_idle_t* idle) {
  ++Calls::of(ZAL_EventLoop_GetIdleContext(idle)).idle;
  uv_idle_stop(idle);  // else the loop never waits
}
void onWork(uv_work_t* request) {
  ++Calls::of(request->data).work;
}
void onClosed(uv_handle_t* handle) {
  ++Calls::of(handle->data).closed;
}
std::atomic<int> changes{0};  // a watch's callback gets no user data
void onChange(ZAL_EventLoopFsWatch /*watch*/, const char* /*name*/, std::uint32_t /*mask*/) {
  ++changes;
}

/// A pipe with a byte in it.
class Pipe {
 public:
  Pipe() { require(pipe(ends_.data()) == 0 && write(ends_[1], "x", 1) == 1, "a pipe of the scenario's own"); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  [[nodiscard]] int readable() const noexcept { return ends_[0]; }

 private:
  std::array<int, 2> ends_{};
};

/// A watched directory. Its last change lets the watch see that it was stopped.
void watchDirectory(ZAL_EventLoopContext loop) {
  std::array<char, 32> path{"/tmp/zal_faults_XXXXXX"};
  require(mkdtemp(path.data()) != nullptr, "a temporary directory");
  changes = 0;
  if (ZAL_EventLoopFsWatch watch =
          FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_StartFs(loop, path.data(), IN_ATTRIB | IN_DELETE_SELF, onChange))) {
    chmod(path.data(), S_IRWXU);
    FAULTS_REQUIRE(waitUnlessStruck([] { return changes > 0; }) || strikeCount() > 0);
    ZAL_EventLoop_StopFs(loop, watch);
  }
  rmdir(path.data());
}

void useLoop(ZAL_EventLoopContext loop, Calls& calls) {
  const Pipe pipe;
  uv_check_t own{};
  FAULTS_REQUIRE(uv_check_init(ZAL_EventLoop_GetLoop(loop), &own) == 0);
  own.data = &calls;

  ZAL_EventLoop_IdleInit(loop, onIdle, &calls);
  const std::uint64_t beforeAsync = strikeCount();
  ZAL_EventLoop_AsyncInit(loop, onAsync, &calls);
  const bool hasAsync = strikeCount() == beforeAsync;
  uv_timer_t* const timer = FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_StartTimer(loop, onTimer, 0, 1, &calls));
  uv_poll_t* const poll = FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_StartPoll(loop, onPoll, pipe.readable(), &calls));
  if (timer != nullptr) ZAL_EventLoop_UpdateTimer(timer, 2);
  ZAL_EventLoop_Run(loop);
  const bool hasWork = FAULTS_ATTEMPT(UV_ENOMEM, ZAL_EventLoop_Work(loop, onWork, &calls)) == 0;
  watchDirectory(loop);
  ZAL_EventLoop_AsyncSend(loop);
  const bool hasCome = waitUnlessStruck([&] {
    return (timer == nullptr || calls.timer > 0) && (poll == nullptr || calls.poll > 0) && calls.idle > 0 &&
           (!hasWork || calls.work > 0) && (!hasAsync || calls.async > 0);
  });
  FAULTS_REQUIRE(hasCome || strikeCount() > 0);
  if (timer != nullptr) ZAL_EventLoop_StopTimer(loop, timer);
  if (poll != nullptr) ZAL_EventLoop_StopPoll(loop, poll);
  ZAL_EventLoop_CloseHandle(loop, reinterpret_cast<uv_handle_t*>(&own), onClosed);
  ZAL_EventLoop_Stop(loop);
  FAULTS_REQUIRE(calls.closed == 1 || strikeCount() > 0);
  ZAL_EventLoop_Destroy(loop);  // here: what it works with ends with this function
}

void stopLoop(uv_timer_t* timer) {
  ZAL_EventLoop_Stop(static_cast<ZAL_EventLoopContext>(ZAL_EventLoop_GetTimerContext(timer)));
}

void useDefaultLoop() {
  const Loop loop{FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_Create(1, "default"))};
  if (!loop) return;
  const Loop shared{FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_Create(1, "default"))};
  uv_timer_t* const timer = FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_StartTimer(loop.get(), stopLoop, 0, 0, loop.get()));
  if (timer == nullptr) return;
  ZAL_EventLoop_Run(loop.get());
  ZAL_EventLoop_StopTimer(loop.get(), timer);
}

/// One side of the transport on a loop of its own.
class Side {
 public:
  Side() : loop_{FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_Create(0, "side"))} {
    if (loop_ != nullptr) ipc_ = FAULTS_ATTEMPT(nullptr, ZAL_IPC_Init(loop_));
    ZAL_IPC_AddMessageCallback(ipc_, onMessage, this);
    ZAL_IPC_AddServerConnectCallback(
        ipc_, [](void* self) { ++of(self).connects; }, this);
    ZAL_IPC_AddServerDisconnectCallback(
        ipc_, [](void* self) { ++of(self).failures; }, this);
    ZAL_IPC_AddClientConnectCallback(
        ipc_, [](ZAL_IpcClientContext client, void* self) { of(self).accepted_ = client; }, this);
    ZAL_IPC_AddClientDisconnectCallback(
        ipc_, [](ZAL_IpcClientContext, void* self) { of(self).closeAccepted(); }, this);
  }
  ~Side() {
    ZAL_IPC_DisconnectServer(ipc_);
    ZAL_IPC_ServerShutdown(ipc_);
    if (loop_ != nullptr) {
      ZAL_EventLoop_Stop(loop_);
      closeAccepted();
      ZAL_EventLoop_Destroy(loop_);
    }
    const auto begin = std::chrono::steady_clock::now();
    ZAL_IPC_UnInit(ipc_);
    FAULTS_REQUIRE(std::chrono::steady_clock::now() - begin < std::chrono::seconds{2});
  }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  [[nodiscard]] ZAL_IpcHandle ipc() const noexcept { return ipc_; }
  void run() const {
    if (loop_ != nullptr) ZAL_EventLoop_Run(loop_);
  }
  /// One image; it belongs to the transport.
  void send(bool isServer) {
    void* bytes = nullptr;
    std::uint32_t size = 0;
    {
      const Aside aside;
      const ZAL_IpcCommandList list = ZAL_IpcCommand_Create();
      ZAL_IpcCommand_GetBuffer(list, &bytes, &size);
      ZAL_IpcCommand_Destroy(list);
    }
    if (isServer) {
      ZAL_IPC_ServerWrite(ipc_, accepted_, bytes, size);
    } else {
      static_cast<void>(ZAL_IPC_ClientWrite(ipc_, bytes, size));
    }
  }

  std::atomic<int> connects{0};
  std::atomic<int> failures{0};
  std::atomic<int> images{0};

 private:
  static Side& of(void* self) noexcept { return *static_cast<Side*>(self); }

  static void onMessage(void* /*image*/, std::uint32_t /*length*/, void* self, void* /*source*/) {
    ++of(self).images;
    if (of(self).accepted_ != nullptr) of(self).send(true);  // the server sends it back
  }
  void closeAccepted() {
    if (ZAL_IpcClientContext const client = accepted_.exchange(nullptr)) ZAL_IPC_CloseClient(client);
  }

  ZAL_EventLoopContext loop_;
  ZAL_IpcHandle ipc_ = nullptr;
  std::atomic<ZAL_IpcClientContext> accepted_{nullptr};
};

void joinSides(const char* url) {
  Side server;
  Side client;
  if (server.ipc() == nullptr || client.ipc() == nullptr) return;
  if (FAULTS_ATTEMPT(0, ZAL_IPC_ServerCreate(server.ipc(), url)) == 0) return;
  if (FAULTS_ATTEMPT(0, ZAL_IPC_ClientConnectServer(client.ipc(), url)) == 0) return;
  server.run();
  client.run();
  const bool hasEnded = waitUnlessStruck([&] { return client.connects + client.failures > 0; });
  FAULTS_REQUIRE(hasEnded || strikeCount() > 0);
  if (client.connects == 0) return;
  client.send(false);
  FAULTS_REQUIRE(waitUnlessStruck([&] { return client.images > 0; }) || strikeCount() > 0);
}

}  // namespace

void loops() {
  uvAfterWork(nullptr, 0);
  Calls calls;
  if (ZAL_EventLoopContext loop = FAULTS_ATTEMPT(nullptr, ZAL_EventLoop_Create(0, "loop"))) useLoop(loop, calls);
  useDefaultLoop();
}

void transport() {
  std::array<char, 64> url{};
  {
    const Aside aside;
    std::snprintf(url.data(), url.size(), "file:///tmp/zal_faults_%d.sock", getpid());
  }
  joinSides(url.data());
  unlink(url.data() + std::strlen("file://"));
}

}  // namespace faults
