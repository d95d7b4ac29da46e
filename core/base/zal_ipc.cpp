// The exported functions of the transport. Each checks its arguments and says what the log has to say; the work is done
// in the rooms that zal_ipc/ipc.hpp introduces.
#include <zal/zal_ipc.h>
#include <zal/zal_runtime.h>

#include <memory>
#include <new>
#include <utility>

#include "support/log.hpp"
#include "support/uri.hpp"
#include "zal_ipc/ipc.hpp"

using zal::CPtr;
using zal::LockGuard;
using zal::UriPtr;
using zal::ipc::Queued;
using zal::ipc::Stream;

namespace {

constexpr int kFailure = 0;
constexpr int kSuccess = 1;
constexpr int kCloseWaits = 10;
constexpr unsigned int kCloseWaitMs = 500;

bool hasListener(ZAL_IpcHandle_& ipc) noexcept {
  const LockGuard hold{ipc.lock};
  return zal::ipc::listenerLocked(ipc) != nullptr;
}

bool isConnected(ZAL_IpcHandle_& ipc) noexcept {
  const LockGuard hold{ipc.lock};
  return ipc.connectedStream != nullptr;
}

/// Sleeps while `isPending` holds, a bounded number of times, and reports each attempt. False when it holds to the end.
template <class IsPending, class Report>
bool waitWhile(IsPending isPending, Report report) noexcept {
  for (int attempt = 0; isPending(); ++attempt) {
    if (attempt == kCloseWaits) return false;
    report(attempt);
    ZAL_Sleep(kCloseWaitMs);
  }
  return true;
}

void waitForCloses(const ZAL_IpcHandle_& ipc) noexcept {
  constexpr auto kFunction = "ZAL_IPC_UnInit";
  const bool closed = waitWhile([&] { return ipc.closePending != 0; },
                                [&](int attempt) {
                                  ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "%s: ipcHandle->closePending=%d loop=%d\n",
                                             kFunction, ipc.closePending.load(), attempt);
                                });
  if (!closed) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "%s: ipcHandle->closePending=%d timeout\n", kFunction,
               ipc.closePending.load());
  }
}

void waitForConnect(const ZAL_IpcHandle_& ipc) noexcept {
  constexpr auto kFunction = "ZAL_IPC_UnInit";
  const auto request = [&] { return static_cast<void*>(ipc.connectRequest.load()); };
  const bool ended = waitWhile([&] { return request() != nullptr; },
                               [&](int attempt) {
                                 ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "%s: ipcHandle->connect=%p loop=%d\n", kFunction,
                                            request(), attempt);
                               });
  if (!ended) ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "%s: ipcHandle->connect=%p timeout\n", kFunction, request());
}

}  // namespace

ZAL_IpcHandle ZAL_IPC_Init(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr) return nullptr;
  std::unique_ptr<ZAL_IpcHandle_> ipc{new (std::nothrow) ZAL_IpcHandle_{loop}};
  if (!ipc || !ipc->lock.valid()) return nullptr;
  zal::ipc::addLive(*ipc);
  if (zal::initUserAsync(loop, ZAL_IPC_AsyncCb, ipc.get())) return ipc.release();
  zal::ipc::removeLive(*ipc);
  return nullptr;
}

void ZAL_IPC_AddMessageCallback(ZAL_IpcHandle ipc, ZAL_IpcMessageCallback callback, void* userData) noexcept {
  if (ipc != nullptr) ipc->onMessage = {callback, userData};
}

void ZAL_IPC_AddServerConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback, void* userData) noexcept {
  if (ipc != nullptr) ipc->onServerConnect = {callback, userData};
}

void ZAL_IPC_AddServerDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback,
                                         void* userData) noexcept {
  if (ipc != nullptr) ipc->onServerDisconnect = {callback, userData};
}

void ZAL_IPC_AddClientConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback, void* userData) noexcept {
  if (ipc != nullptr) ipc->onClientConnect = {callback, userData};
}

void ZAL_IPC_AddClientDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback,
                                         void* userData) noexcept {
  if (ipc != nullptr) ipc->onClientDisconnect = {callback, userData};
}

int ZAL_IPC_ServerCreate(ZAL_IpcHandle ipc, const char* url) noexcept {
  if (ipc == nullptr) return kFailure;
  if (url == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Inavlid IPC URL\n");
    return kFailure;
  }
  const auto endpoint = zal::ipc::listenEndpoint(url);
  if (!endpoint) {
    ZAL_LOG(ZAL_LOG_ERROR, "invalid ipc url\n");
    return kFailure;
  }
  if (hasListener(*ipc)) {
    ZAL_LOG(ZAL_LOG_ERROR, "already listening\n");
    return kFailure;
  }
  return endpoint->transport == zal::ipc::kTcp ? zal::ipc::serverCreateTcpSocket(ipc, endpoint->address)
                                               : zal::ipc::ZAL_IPC_ServerCreateDomainSocket(ipc, endpoint->path);
}

int ZAL_IPC_ClientConnectServer(ZAL_IpcHandle ipc, const char* url) noexcept {
  if (ipc == nullptr) return kFailure;
  const UriPtr uri{url == nullptr ? nullptr : ZAL_UriParser_Create(url)};
  if (!uri) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid IPC url\n");
    return kFailure;
  }
  if (ipc->connectRequest != nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "A connect operation is already in progress\n");
    return kFailure;
  }
  if (isConnected(*ipc)) {
    ZAL_LOG(ZAL_LOG_ERROR, "Already connected\n");
    return kFailure;
  }
  ZAL_LOG(ZAL_LOG_TRACE, "IPC connect to %s\n", url);
  if (zal::ipc::transportOf(url) == zal::ipc::kNoTransport) {
    ZAL_LOG(ZAL_LOG_ERROR, "Unsupported URL protocol, use file:// or tcp://, url=%s\n", url);
    return kFailure;
  }
  const auto endpoint = zal::ipc::connectEndpoint(url, uri.get());
  if (!endpoint) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid IPC url\n");
    return kFailure;
  }
  return zal::ipc::startConnect(*ipc, *endpoint) ? kSuccess : kFailure;
}

namespace {

Queued queueToServer(ZAL_IpcHandle_& ipc, std::uint32_t connection, CPtr<void> buffer, std::uint32_t length) noexcept {
  const LockGuard hold{ipc.lock};
  const bool isUp = connection == zal::ipc::kAnyConnection || connection == ipc.connectionNumber;
  if (ipc.connectedStream == nullptr || !isUp) return Queued::kNot;
  return zal::ipc::appendWriteLocked(ipc, ipc.connectedStream, std::move(buffer), length);
}

Queued queueToClient(ZAL_IpcHandle_& ipc, ZAL_IpcClientContext client, CPtr<void> buffer,
                     std::uint32_t length) noexcept {
  const LockGuard hold{ipc.lock};
  uv_stream_t* const stream = zal::ipc::writableStreamLocked(ipc, client);
  return stream == nullptr ? Queued::kNot : zal::ipc::appendWriteLocked(ipc, stream, std::move(buffer), length);
}

/// Without the lock, for which the loop thread would have to wait as soon as it is awake.
void wakeFor(Queued queued, const ZAL_IpcHandle_& ipc) noexcept {
  if (queued == Queued::kFirst) ZAL_EventLoop_AsyncSend(ipc.eventLoop);
}

}  // namespace

std::uint32_t zal::ipc::connectionNumber(ZAL_IpcHandle_& ipc) noexcept {
  const LockGuard hold{ipc.lock};
  return ipc.connectionNumber;
}

bool zal::ipc::writeOn(std::uint32_t connection, ZAL_IpcHandle_& ipc, CPtr<void> buffer,
                       std::uint32_t length) noexcept {
  const Queued queued = queueToServer(ipc, connection, std::move(buffer), length);
  wakeFor(queued, ipc);
  return queued != Queued::kNot;
}

int ZAL_IPC_ClientWrite(ZAL_IpcHandle ipc, void* buffer, uint32_t length) noexcept {
  CPtr<void> owned{buffer};
  if (ipc == nullptr || !owned || length == 0) return kFailure;
  return zal::ipc::writeOn(zal::ipc::kAnyConnection, *ipc, std::move(owned), length) ? kSuccess : kFailure;
}

void ZAL_IPC_ServerWrite(ZAL_IpcHandle ipc, ZAL_IpcClientContext client, void* buffer, uint32_t length) noexcept {
  CPtr<void> owned{buffer};
  if (ipc == nullptr || !owned || length == 0) return;
  wakeFor(queueToClient(*ipc, client, std::move(owned), length), *ipc);
}

void ZAL_IPC_CloseClient(ZAL_IpcClientContext client) noexcept {
  if (client == nullptr) return;
  ZAL_IpcHandle const ipc = client->ipc;
  Stream& stream = Stream::of(client->stream);
  const LockGuard hold{ipc->lock};
  if (stream.closing) {  // a mistake that the event loop knows how to report; it is neither counted nor made
    ZAL_EventLoop_CloseHandle(ipc->eventLoop, &stream.uv.handle, nullptr);
  } else {
    zal::ipc::requestCloseLocked(*ipc, stream, __func__);
  }
}

void ZAL_IPC_DisconnectServer(ZAL_IpcHandle ipc) noexcept {
  if (ipc == nullptr) return;
  const LockGuard hold{ipc->lock};
  uv_connect_t* const request = ipc->connectRequest;
  if (uv_stream_t* const stream = ipc->connectedStream; stream != nullptr) {
    ZAL_LOG(ZAL_LOG_TRACE, "%s: close the connected stream=%p\n", __func__, static_cast<void*>(stream));
    ipc->connectedStream = nullptr;
    zal::ipc::requestCloseLocked(*ipc, Stream::of(stream), __func__);
  } else if (request != nullptr && !Stream::of(request->handle).closing) {
    ZAL_LOG(ZAL_LOG_TRACE, "%s: close the connecting stream=%p\n", __func__, static_cast<void*>(request->handle));
    zal::ipc::requestCloseLocked(*ipc, Stream::of(request->handle), __func__);
  }
}

void ZAL_IPC_ServerShutdown(ZAL_IpcHandle ipc) noexcept {
  if (ipc == nullptr) return;
  const LockGuard hold{ipc->lock};
  Stream* const listener = zal::ipc::listenerLocked(*ipc);
  if (listener == nullptr) return;
  ZAL_LOG(ZAL_LOG_TRACE, "%s: closing listener handle=%p\n", __func__, static_cast<void*>(&listener->uv.handle));
  zal::ipc::requestCloseLocked(*ipc, *listener, __func__);
}

void ZAL_IPC_UnInit(ZAL_IpcHandle ipc) noexcept {
  if (ipc == nullptr) return;
  waitForCloses(*ipc);
  waitForConnect(*ipc);
  zal::ipc::removeLive(*ipc);
  ZAL_LOG(ZAL_LOG_TRACE, "%s: IPC Uninit Done handle=%p\n", __func__, static_cast<void*>(ipc));
  zal::ipc::abandon(ipc);
}
