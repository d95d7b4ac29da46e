// How streams and handles end. Any thread asks for a close, which the event loop carries to the loop thread; the close
// callbacks free the stream there. A handle that is released while libuv still knows streams of it is freed with the
// last of them.

#include <memory>
#include <utility>

#include "ipc.hpp"
#include "support/log.hpp"

namespace zal::ipc {

namespace {

uv_close_cb closeCallbackOf(Role role) noexcept {
  switch (role) {
    case Role::kListener:
      return onCloseServerListener;
    case Role::kAccepted:
      return onCloseServerSide;
    case Role::kClient:
      break;
  }
  return onCloseClientSide;
}

std::unique_ptr<Stream> unlistLocked(ZAL_IpcHandle_& ipc, Stream& stream) noexcept ZAL_REQUIRES(ipc.lock) {
  if (ipc.pipe == &stream.uv.pipe) ipc.pipe = nullptr;
  if (ipc.tcp == &stream.uv.tcp) ipc.tcp = nullptr;
  return ipc.streams.remove(stream);
}

void destroy(std::unique_ptr<Stream> stream) noexcept {
  freeGatherState(stream->client.gatherState);
}

/// The common end of the close callbacks.
void finishClose(Stream& stream, const char* function) noexcept {
  ZAL_IpcHandle_& ipc = *stream.ipc;
  ZAL_INVARIANT(stream.closing && isOnLoop(ipc));
  std::unique_ptr<Stream> owned;
  int pending = 0;
  bool isLastOfAbandoned = false;
  {
    const LockGuard hold{ipc.lock};
    dropWaitingWritesLocked(ipc, &stream.uv.stream);
    owned = unlistLocked(ipc, stream);
    isLastOfAbandoned = ipc.abandoned && ipc.streams.head() == nullptr;
    pending = --ipc.closePending;
    ZAL_INVARIANT(pending >= 0 && (ipc.abandoned || ipc.connectedStream != &stream.uv.stream));
  }
  // ZAL_IPC_UnInit waits for the count and takes the lock, and then frees the handle, which is not touched any more.
  destroy(std::move(owned));
  ZAL_LOG_AS(ZAL_LOG_TRACE, function, "%s: ipcCtx->closePending=%d\n", function, pending);
  if (isLastOfAbandoned) delete &ipc;
}

/// Frees the streams that were closed when their loop was destroyed, and asks for the close of those still open.
void releaseStreamsLocked(ZAL_IpcHandle_& ipc) noexcept ZAL_REQUIRES(ipc.lock) {
  for (Stream* stream = ipc.streams.head(); stream != nullptr;) {
    Stream& current = *stream;
    stream = current.next;
    if (current.closing) continue;
    if (uv_is_closing(&current.uv.handle) != 0) {
      destroy(unlistLocked(ipc, current));
    } else {
      requestCloseLocked(ipc, current, "ZAL_IPC_UnInit");
    }
  }
}

}  // namespace

void requestCloseLocked(ZAL_IpcHandle_& ipc, Stream& stream, const char* function) noexcept {
  // A loop that is destroyed closes the streams it finds; there may be no loop any more to ask.
  if (stream.closing || uv_is_closing(&stream.uv.handle) != 0) return;
  stream.closing = true;
  const int pending = ++ipc.closePending;
  ZAL_LOG_AS(ZAL_LOG_TRACE, function, "%s: ipcCtx->closePending=%d\n", function, pending);
  closeHandle(ipc.eventLoop, &stream.uv.handle, closeCallbackOf(stream.role), std::move(stream.close));
}

void onCloseClientSide(uv_handle_t* handle) noexcept {
  Stream& stream = Stream::of(handle);
  ZAL_IpcHandle_& ipc = *stream.ipc;
  if (ipc.gatherStream == &stream) {
    freeGatherState(ipc.gatherState);
    ipc.gatherStream = nullptr;
  }
  finishClose(stream, "onCloseClientSide");
}

void onCloseServerSide(uv_handle_t* handle) noexcept {
  Stream& stream = Stream::of(handle);
  reportClientGone(stream.client);
  finishClose(stream, "onCloseServerSide");
}

void onCloseServerListener(uv_handle_t* handle) noexcept {
  finishClose(Stream::of(handle), "onCloseServerListener");
}

void abandon(ZAL_IpcHandle_* ipc) noexcept {
  bool isFree = false;
  {
    const LockGuard hold{ipc->lock};
    dropWaitingWritesLocked(*ipc, nullptr);
    releaseStreamsLocked(*ipc);
    ipc->abandoned = true;
    isFree = ipc->streams.head() == nullptr;
  }
  if (isFree) delete ipc;
}

}  // namespace zal::ipc

ZAL_IpcHandle_::~ZAL_IpcHandle_() {
  ZAL_INVARIANT(streams.head() == nullptr && writeQueue == nullptr);
  zal::ipc::freeGatherState(gatherState);
}
