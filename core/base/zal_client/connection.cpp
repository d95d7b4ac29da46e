// The client's life and its connection: creation, start, stop, the connect timer and the rule of reconnection.
#include <sys/time.h>

#include <algorithm>

#include "base/zal_client/client.hpp"
#include "base/zal_eventloop.hpp"
#include "support/log.hpp"

namespace zal {

namespace {

constexpr std::int32_t kDefaultIntervalMs = 1000;
constexpr std::uint64_t kFirstConnectionMs = 1000;
constexpr int kJitterMs = 100;

void connectTimerCallback(uv_timer_t* timer) noexcept;

/// Start, or the loop thread. One attempt at a time: a pending timer stays the only one.
void armConnectTimer(ZAL_ClientHandle_& client, int delayMs) noexcept {
  if (uv_is_active(reinterpret_cast<uv_handle_t*>(&client.connectTimer)) != 0) return;
  startOwnTimer(client.loop, client.connectTimer, connectTimerCallback, static_cast<std::uint64_t>(delayMs));
}

int drawJitter() noexcept {
  timeval now{};
  gettimeofday(&now, nullptr);
  std::srand(static_cast<unsigned>(now.tv_usec + (now.tv_sec % 60) * 1'000'000));
  return std::rand() % kJitterMs;  // NOLINT: the prescribed source of jitter; nothing secret hangs on it
}

void armRetry(ZAL_ClientHandle_& client) noexcept {
  const std::int64_t delay = std::int64_t{client.retryInterval} + drawJitter();
  armConnectTimer(client, static_cast<int>(std::min<std::int64_t>(delay, INT32_MAX)));
}

void connectTimerCallback(uv_timer_t* timer) noexcept {
  auto& client = *static_cast<ZAL_ClientHandle_*>(ZAL_EventLoop_GetTimerContext(timer));
  ZAL_INVARIANT(isLoopThread(client.loop) && timer == &client.connectTimer);
  if (!client.isStarted()) return;
  // An attempt that is refused on the spot is followed by no callback of the transport, so it is renewed here.
  if (ZAL_IPC_ClientConnectServer(client.ipc, client.options.url) == 0 && !client.isConnected()) armRetry(client);
  // Stop may have looked for the connection before it was begun.
  if (!client.isStarted()) ZAL_IPC_DisconnectServer(client.ipc);
}

/// The transport's server-connect callback. Loop thread.
void onConnect(void* userData) noexcept {
  auto& client = *static_cast<ZAL_ClientHandle_*>(userData);
  ZAL_INVARIANT(isLoopThread(client.loop));
  if (client.isConnected()) return;
  ZAL_LOG(ZAL_LOG_DEBUG, "on connect callback\n");
  client.connection = ipc::connectionNumber(*client.ipc);
  client.configPending.store(1);
  client.flags.fetch_or(kConnected);
  ZAL_Cond_Signal(client.connectedCond.get());
  ZAL_Client_GetConfigurationRemote(&client);
}

/// The transport's server-disconnect callback: a connection was lost or an attempt failed. Loop thread.
void onServerDisconnect(void* userData) noexcept {
  auto& client = *static_cast<ZAL_ClientHandle_*>(userData);
  ZAL_INVARIANT(isLoopThread(client.loop));
  if (client.isConnected()) {
    static_cast<void>(postJob(client, disconnectPortalCallbackWork, &client));  // a failure is logged there
    client.flags.fetch_and(static_cast<std::uint8_t>(~kConnected));
  }
  if (client.isStarted()) armRetry(client);
}

void stopLocked(ZAL_ClientHandle_& client) noexcept ZAL_REQUIRES(client.lifecycleMutex) {
  const std::uint8_t before = client.flags.fetch_and(static_cast<std::uint8_t>(~kStarted));
  if ((before & kStarted) == 0) return;
  ZAL_IPC_DisconnectServer(client.ipc);
  ZAL_EventLoop_Stop(client.loop);
  stopOwnTimer(client.loop, client.connectTimer);
  // The loop thread has ended, and no other sets this bit. The next start finds a client without a connection.
  client.flags.fetch_and(static_cast<std::uint8_t>(~kConnected));
}

void writeImage(ZAL_ClientHandle_& client, Image image, std::uint32_t connection) noexcept {
  ZAL_INVARIANT(image.size == 0 || image.bytes != nullptr);
  if (image.size != 0) ipc::writeOn(connection, *client.ipc, std::move(image.bytes), image.size);
}

}  // namespace

ZAL_ClientHandle_* createClient(const ZAL_ClientOptions& options) noexcept {
  constexpr const char* kFunction = "ZAL_Client_Create";
  std::unique_ptr<ZAL_ClientHandle_> client{new (std::nothrow) ZAL_ClientHandle_};
  if (!client || !client->valid()) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "out of memory\n");
    return nullptr;
  }
  client->options = options;
  client->options.url[sizeof client->options.url - 1] = '\0';
  client->loop = ZAL_EventLoop_Create(0, "ZAL_IPC");
  if (client->loop == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "CRIT: ZAL_EventLoop_Create() return failure\n");
    return nullptr;
  }
  client->retryInterval = options.interval >= 1 ? options.interval : kDefaultIntervalMs;
  client->ipc = ZAL_IPC_Init(client->loop);
  if (client->ipc == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "CRIT: %s failed to create IPC handle\n", kFunction);
    ZAL_EventLoop_Destroy(client->loop);
    return nullptr;
  }
  static_cast<void>(uv_timer_init(ZAL_EventLoop_GetLoop(client->loop), &client->connectTimer));  // always 0
  client->connectTimer.data = client.get();
  ZAL_IPC_AddMessageCallback(client->ipc, onMessage, client.get());
  ZAL_IPC_AddServerConnectCallback(client->ipc, onConnect, client.get());
  ZAL_IPC_AddServerDisconnectCallback(client->ipc, onServerDisconnect, client.get());
  return client.release();
}

void startClient(ZAL_ClientHandle_& client) noexcept {
  {
    const LockGuard hold{client.lifecycleMutex};
    if (client.closed || client.isStarted()) return;
    // A connection of an earlier run may have left its signal: this run waits for its own.
    static_cast<void>(ZAL_Cond_Wait(client.connectedCond.get(), 0));
    ZAL_INVARIANT(!client.isConnected());
    client.flags.fetch_or(kStarted);
    armConnectTimer(client, client.retryInterval);
    ZAL_EventLoop_Run(client.loop);
    if (!isRunning(client.loop)) return stopLocked(client);  // as the log says: a later start may find a thread
    readyWorker(client);
  }
  if (ZAL_Cond_Wait(client.connectedCond.get(), kFirstConnectionMs) != 0) {
    ZAL_LOG_AS(ZAL_LOG_INFO, "ZAL_Client_Start", "did not immediately connect to server, retrying...\n");
  }
}

void stopClient(ZAL_ClientHandle_& client) noexcept {
  if (isLoopThread(client.loop)) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_Client_Stop", "refused on the client's own loop thread\n");
    return;
  }
  const LockGuard hold{client.lifecycleMutex};
  stopLocked(client);
}

bool quiesceClient(ZAL_ClientHandle_& client, const char* caller) noexcept {
  if (runsJob() || isLoopThread(client.loop)) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, caller, "refused inside a handler or callback\n");
    return false;
  }
  {
    const LockGuard hold{client.lifecycleMutex};
    client.closed = true;
    stopLocked(client);
  }
  client.work.endLingering();
  client.jobs.closeAndWait();
  return true;
}

void destroyLoop(ZAL_ClientHandle_& client) noexcept {
  closeHandle(client.loop, reinterpret_cast<uv_handle_t*>(&client.connectTimer), nullptr,
              std::move(client.connectTimerClose));
  ZAL_EventLoop_Destroy(client.loop);
}

void forsakeContents(ZAL_ClientHandle_& client) noexcept {
  {
    const LockGuard hold{client.callbackMutex};
    static_cast<void>(client.connectCallbacks.release());
    static_cast<void>(client.disconnectCallbacks.release());
    static_cast<void>(client.configChangeCallbacks.release());
  }
  static_cast<void>(client.pendingRequests.release());
  {
    const LockGuard hold{client.servicesMutex};
    static_cast<void>(client.services.release());
  }
  const LockGuard hold{client.configMutex};
  static_cast<void>(client.config.release());
}

void writeList(ZAL_ClientHandle_& client, ZAL_IpcCommandList list) noexcept {
  void* bytes = nullptr;
  std::uint32_t size = 0;
  ZAL_IpcCommand_GetBuffer(list, &bytes, &size);
  writeImage(client, {CPtr<void>{bytes}, size}, ipc::kAnyConnection);
}

void writeCommands(ZAL_ClientHandle_& client, std::span<const CommandView> commands,
                   std::uint32_t connection) noexcept {
  writeImage(client, encode(commands), connection);
}

}  // namespace zal

void ZAL_Client_GetConfigurationRemote(ZAL_ClientHandle client) noexcept {
  if (client == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid handle client handle\n");
    return;
  }
  const zal::CommandView command{.code = ZAL_IPC_CMD_GET_CONFIG, .service = "retrieveConfig"};
  zal::writeCommands(*client, {&command, 1});
}
