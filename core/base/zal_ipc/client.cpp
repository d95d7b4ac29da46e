// The client side: one connection to a server, from the connect to its loss. Everything here is for the loop thread.
// Other threads see the connection through connectRequest and connectedStream, which change under the lock.

#include <memory>
#include <new>

#include "ipc.hpp"
#include "support/log.hpp"

namespace zal::ipc {

namespace {

constexpr int kSendBufferBytes = 262144;

int tplGatherDataClientSideCallback(void* image, std::size_t length, void* data) noexcept {
  auto* const stream = static_cast<uv_stream_t*>(data);
  if (stream == nullptr || stream->data == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "invalid handle\n");
    return -1;
  }
  deliver(Stream::of(stream), image, length, stream);
  return 0;
}

void receiveFromServer(uv_stream_t* stream, const uv_buf_t& buffer, ssize_t count) noexcept {
  if (Stream::of(stream).closing) return;
  auto& ipc = *static_cast<ZAL_IpcHandle_*>(stream->data);
  gather(ipc.gatherState, buffer, count, tplGatherDataClientSideCallback, stream);
  if (ipc.onMessage.function == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_IPC_OnReadFromServer",
               "recv data from server, but there is not ipc msg callback client=%p\n", static_cast<void*>(stream));
  }
}

/// True when the stream was the connected one, which it is no longer: its close is under way.
bool giveUp(ZAL_IpcHandle_& ipc, uv_stream_t* stream) noexcept {
  const LockGuard hold{ipc.lock};
  if (ipc.connectedStream != stream) return false;
  ipc.connectedStream = nullptr;
  requestCloseLocked(ipc, Stream::of(stream), "ZAL_IPC_OnReadFromServer");
  return true;
}

void ZAL_IPC_OnReadFromServer(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) noexcept {
  ZAL_INVARIANT(Stream::of(stream).role == Role::kClient && isOnLoop(*Stream::of(stream).ipc));
  const ReadBlock block{stream, *buffer};
  if (count >= 0) {
    receiveFromServer(stream, *buffer, count);
    return;
  }
  ZAL_LOG(ZAL_LOG_DEBUG, "on read from server: %d\n", static_cast<int>(count));
  static_cast<void>(uv_read_stop(stream));
  auto& ipc = *static_cast<ZAL_IpcHandle_*>(stream->data);
  if (giveUp(ipc, stream)) notify(ipc, ipc.onServerDisconnect);
}

/// False when ZAL_IPC_DisconnectServer came before the connect completed.
bool establish(ZAL_IpcHandle_& ipc, Stream& stream) noexcept {
  const LockGuard hold{ipc.lock};
  if (stream.closing) return false;
  ZAL_INVARIANT(ipc.connectedStream == nullptr);
  ipc.connectedStream = &stream.uv.stream;
  if (++ipc.connectionNumber == kAnyConnection) ++ipc.connectionNumber;
  return true;
}

void onConnected(ZAL_IpcHandle_& ipc, Stream& stream) noexcept {
  ZAL_LOG_AS(ZAL_LOG_DEBUG, "ZAL_IPC_OnConnectToServer", "connect to server successful\n");
  freeGatherState(ipc.gatherState);  // an earlier connection may not be closed yet
  ipc.gatherStream = &stream;
  notify(ipc, ipc.onServerConnect);
  int size = kSendBufferBytes;
  static_cast<void>(uv_send_buffer_size(&stream.uv.handle, &size));  // a wish: the default serves as well
  startReading(stream, ZAL_IPC_OnReadFromServer);
}

void onConnectFailed(ZAL_IpcHandle_& ipc, Stream& stream, int status) noexcept {
  constexpr auto kFunction = "ZAL_IPC_OnConnectToServer";
  ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "on connection error client to server: %d %s\n", status, uv_strerror(status));
  {
    const LockGuard hold{ipc.lock};
    if (status != UV_ECANCELED) requestCloseLocked(ipc, stream, kFunction);
    ipc.transport = kNoTransport;
  }
  notify(ipc, ipc.onServerDisconnect);
}

void setConnectRequest(ZAL_IpcHandle_& ipc, uv_connect_t* request) noexcept {
  const LockGuard hold{ipc.lock};
  ZAL_INVARIANT((request == nullptr) != (ipc.connectRequest == nullptr));
  ipc.connectRequest = request;
}

void ZAL_IPC_OnConnectToServer(uv_connect_t* request, int status) noexcept {
  const std::unique_ptr<uv_connect_t> owned{request};
  auto& ipc = *static_cast<ZAL_IpcHandle_*>(request->data);
  Stream& stream = Stream::of(request->handle);
  if (status == 0 && !establish(ipc, stream)) status = UV_ECANCELED;
  if (status == 0) {
    onConnected(ipc, stream);
  } else {
    onConnectFailed(ipc, stream, status);
  }
  setConnectRequest(ipc, nullptr);  // last: ZAL_IPC_UnInit may free the handle from here on
}

}  // namespace

bool startConnect(ZAL_IpcHandle_& ipc, const Endpoint& endpoint) noexcept {
  std::unique_ptr<uv_connect_t> owned{new (std::nothrow) uv_connect_t{}};
  Stream* const stream = owned ? openStream(ipc, endpoint.transport, Role::kClient) : nullptr;
  if (stream == nullptr) return false;
  uv_connect_t* const request = owned.release();  // ZAL_IPC_OnConnectToServer frees it
  request->data = &ipc;
  request->handle = &stream->uv.stream;
  setConnectRequest(ipc, request);
  if (endpoint.transport == kUnixDomain) {
    uv_pipe_connect(request, &stream->uv.pipe, endpoint.path, ZAL_IPC_OnConnectToServer);
    return true;
  }
  const auto* const address = reinterpret_cast<const sockaddr*>(&endpoint.address);
  const int status = uv_tcp_connect(request, &stream->uv.tcp, address, ZAL_IPC_OnConnectToServer);
  if (status != 0) ZAL_IPC_OnConnectToServer(request, status);
  return true;
}

}  // namespace zal::ipc
