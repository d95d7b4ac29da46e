// The server side: a listener and the connections that it accepts. Everything here is for the loop thread, but for what
// ipc.hpp marks otherwise.

#include <unistd.h>

#include "ipc.hpp"
#include "support/log.hpp"

namespace zal::ipc {

namespace {

constexpr int kPipeBacklog = 0;
constexpr int kTcpBacklog = 10;
constexpr int kReceiveBufferBytes = 262144;

int tplGatherDataServerSideCallback(void* image, std::size_t length, void* data) noexcept {
  auto* const client = static_cast<ZAL_IpcClientContext_*>(data);
  if (client == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "invalid handle\n");
    return -1;
  }
  deliver(Stream::of(client->stream), image, length, client);
  return 0;
}

void receiveFromClient(ZAL_IpcClientContext_& client, const uv_buf_t& buffer, ssize_t count) noexcept {
  if (Stream::of(client.stream).closing) return;
  uv_stream_t* const stream = client.stream;
  gather(client.gatherState, buffer, count, tplGatherDataServerSideCallback, &client);
  if (client.ipc->onMessage.function == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "on_read_from_client_cb_local",
               "recv data from client, but there is not ipc msg callback client=%p\n", static_cast<void*>(stream));
  }
}

void on_read_from_client_cb_local(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) noexcept {
  ZAL_INVARIANT(Stream::of(stream).role == Role::kAccepted && isOnLoop(*Stream::of(stream).ipc));
  const ReadBlock block{stream, *buffer};
  auto& client = *static_cast<ZAL_IpcClientContext_*>(stream->data);
  if (count >= 0) {
    receiveFromClient(client, *buffer, count);
    return;
  }
  ZAL_LOG(ZAL_LOG_DEBUG, "on client disconnect %p\n", static_cast<void*>(stream));
  static_cast<void>(uv_read_stop(stream));  // an error of ours, such as no memory, would come again and again
  reportClientGone(client);
}

void welcome(Stream& stream) noexcept {
  ZAL_IpcHandle_& ipc = *stream.ipc;
  int size = kReceiveBufferBytes;
  static_cast<void>(uv_recv_buffer_size(&stream.uv.handle, &size));  // a wish: the default serves as well
  stream.client.disconnectPending = ipc.onClientDisconnect.function != nullptr ? 1 : 0;
  notify(ipc, ipc.onClientConnect, &stream.client);
  startReading(stream, on_read_from_client_cb_local);
}

void onConnection(uv_stream_t* listener, int status) noexcept {
  Stream& parent = Stream::of(listener);
  if (status != 0) {
    ZAL_LOG(ZAL_LOG_ERROR, "incoming connection failed: %d %s\n", status, uv_strerror(status));
    return;
  }
  if (parent.closing) return;  // libuv drops the connection with the listener
  ZAL_IpcHandle_& ipc = *parent.ipc;
  Stream* const stream = openStream(ipc, listener->type == UV_TCP ? kTcp : kUnixDomain, Role::kAccepted);
  if (stream == nullptr) return;
  if (const int failure = uv_accept(listener, &stream->uv.stream); failure != 0) {
    ZAL_LOG(ZAL_LOG_ERROR, "accept failed: %d %s\n", failure, uv_strerror(failure));
    const LockGuard hold{ipc.lock};
    requestCloseLocked(ipc, *stream, __func__);
    return;
  }
  welcome(*stream);
}

/// A listener that cannot listen stays, closed by ZAL_IPC_ServerShutdown like any other; only the log tells.
int listenOn(Stream& listener, int bindStatus, int backlog, const char* function) noexcept {
  const int status = bindStatus != 0 ? bindStatus : uv_listen(&listener.uv.stream, backlog, onConnection);
  if (status != 0) ZAL_LOG_AS(ZAL_LOG_ERROR, function, "cannot listen: %d %s\n", status, uv_strerror(status));
  return 1;
}

}  // namespace

int ZAL_IPC_ServerCreateDomainSocket(ZAL_IpcHandle ipc, const char* path) noexcept {
  Stream* const listener = openStream(*ipc, kUnixDomain, Role::kListener);
  if (listener == nullptr) return 0;
  static_cast<void>(unlink(path));  // left by an earlier run, or not there
  return listenOn(*listener, uv_pipe_bind(&listener->uv.pipe, path), kPipeBacklog, __func__);
}

int serverCreateTcpSocket(ZAL_IpcHandle ipc, const sockaddr_in& address) noexcept {
  Stream* const listener = openStream(*ipc, kTcp, Role::kListener);
  if (listener == nullptr) return 0;
  const int status = uv_tcp_bind(&listener->uv.tcp, reinterpret_cast<const sockaddr*>(&address), 0);
  return listenOn(*listener, status, kTcpBacklog, "ZAL_IPC_ServerCreate");
}

Stream* listenerLocked(ZAL_IpcHandle_& ipc) noexcept {
  for (Stream* stream = ipc.streams.head(); stream != nullptr; stream = stream->next)
    if (stream->role == Role::kListener && !stream->closing) return stream;
  return nullptr;
}

uv_stream_t* writableStreamLocked(ZAL_IpcHandle_& ipc, const ZAL_IpcClientContext_* client) noexcept {
  Stream* const stream = ipc.streams.find(client);
  return stream != nullptr && stream->role == Role::kAccepted && !stream->closing ? &stream->uv.stream : nullptr;
}

void reportClientGone(ZAL_IpcClientContext_& client) noexcept {
  if (client.disconnectPending == 0) return;
  client.disconnectPending = 0;
  notify(*client.ipc, client.ipc->onClientDisconnect, &client);
}

}  // namespace zal::ipc
