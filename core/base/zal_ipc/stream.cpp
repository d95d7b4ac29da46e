// A stream from its making on, and the road of its bytes: read buffer, gather step, message callback.
// Everything here is for the loop thread. How streams end stands in closing.cpp.

#include <memory>
#include <new>
#include <utility>

#include "ipc.hpp"
#include "support/log.hpp"

namespace zal::ipc {

namespace {

constexpr std::size_t kReadBufferBytes = 524288;

int initialise(Stream& stream, uv_loop_t* loop, Transport transport) noexcept {
  if (transport != kTcp) return uv_pipe_init(loop, &stream.uv.pipe, 0);
  const int status = uv_tcp_init(loop, &stream.uv.tcp);
  // Otherwise the second of two small images would wait for the peer's delayed acknowledgement of the first, 40 ms.
  return status != 0 ? status : uv_tcp_nodelay(&stream.uv.tcp, 1);
}

Stream* enlist(ZAL_IpcHandle_& ipc, std::unique_ptr<Stream> owned, Transport transport) noexcept {
  Stream* const stream = owned.get();
  const LockGuard hold{ipc.lock};
  ipc.streams.push(std::move(owned));
  if (stream->role == Role::kAccepted) return stream;
  ipc.transport = transport;
  if (transport == kTcp) {
    ipc.tcp = &stream->uv.tcp;
  } else {
    ipc.pipe = &stream->uv.pipe;
  }
  return stream;
}

/// Without memory libuv gets an empty buffer, and the read callback UV_ENOBUFS, which ends the connection.
void lendReadBuffer(uv_handle_t* handle, std::size_t /*suggested*/, uv_buf_t* buffer) noexcept {
  CPtr<char>& kept = Stream::of(handle).ipc->readBuffer;
  buffer->base = kept ? kept.release() : allocateBytes(kReadBufferBytes).release();  // a ReadBlock returns it
  buffer->len = buffer->base != nullptr ? kReadBufferBytes : 0;
}

}  // namespace

Stream* openStream(ZAL_IpcHandle_& ipc, Transport transport, Role role) noexcept {
  std::unique_ptr<Stream> stream{new (std::nothrow) Stream{}};
  if (stream) stream->close = reserveClose();
  const int status = stream && stream->close ? initialise(*stream, ipc.loop, transport) : UV_ENOMEM;
  if (status != 0) {
    ZAL_LOG(ZAL_LOG_ERROR, "cannot make a stream: %s\n", uv_strerror(status));
    return nullptr;
  }
  stream->ipc = &ipc;
  stream->role = role;
  stream->client = {&stream->uv.stream, &ipc, nullptr, 0};
  stream->uv.handle.data = role == Role::kAccepted ? static_cast<void*>(&stream->client) : &ipc;
  return enlist(ipc, std::move(stream), transport);
}

void startReading(Stream& stream, uv_read_cb onRead) noexcept {
  if (stream.closing) return;
  const int status = uv_read_start(&stream.uv.stream, lendReadBuffer, onRead);
  const uv_buf_t nothing = uv_buf_init(nullptr, 0);
  if (status != 0) onRead(&stream.uv.stream, status, &nothing);
}

void gather(tpl_gather_state*& pending, const uv_buf_t& buffer, ssize_t count, tpl_gather_callback onImage,
            void* data) noexcept {
  ZAL_INVARIANT(count >= 0 && static_cast<std::size_t>(count) <= buffer.len);
  // A stream that broke off is not closed: the engine has dropped it, and the next block must begin with an image.
  static_cast<void>(tpl_gather(TPL_GATHER_FROM_MEM, static_cast<void*>(buffer.base), static_cast<std::size_t>(count),
                               &pending, onImage, data));
}

void deliver(const Stream& stream, void* image, std::size_t length, void* source) noexcept {
  const auto& callback = stream.ipc->onMessage;
  if (callback.function == nullptr || stream.closing) return;
  callback.function(image, static_cast<std::uint32_t>(length), callback.userData, source);
}

void freeGatherState(tpl_gather_state*& pending) noexcept {
  if (pending == nullptr) return;
  tpl_hook.free_fn(pending->bytes);
  tpl_hook.free_fn(pending);
  pending = nullptr;
}

}  // namespace zal::ipc
