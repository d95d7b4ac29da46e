// The write queue of a handle: buffers wait here until the loop thread writes them, one at a time, in order.
// Appending and dropping are for any thread, starting and completing for the loop thread. A queue whose head waits has
// a wake-up under way; only its head is ever in flight.

#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "ipc.hpp"
#include "support/log.hpp"

namespace zal::ipc {

namespace {

// A wake-up that was sent before ZAL_IPC_UnInit may be delivered after it, so the async callback looks its handle up
// here. Taken before a handle's lock.
std::mutex liveLock;
ZAL_IpcHandle_* liveHandles = nullptr;

/// Takes the entry that `link` leads to out of the queue.
std::unique_ptr<ZAL_IpcWriteEntry> unlinkLocked(ZAL_IpcHandle_& ipc, ZAL_IpcWriteEntry** link) noexcept
    ZAL_REQUIRES(ipc.lock) {
  std::unique_ptr<ZAL_IpcWriteEntry> entry{*link};
  *link = entry->next;
  if (ipc.writeTail == &entry->next) ipc.writeTail = link;
  return entry;
}

void logFailedWrite(const uv_write_t* request, int status) noexcept {
  if (status == 0) return;
  ZAL_LOG_AS(ZAL_LOG_ERROR, "write_cleanup", "%s: req=%p, status=%d %s\n", "write_cleanup",
             static_cast<const void*>(request), status, uv_strerror(status));
}

void write_cleanup(uv_write_t* request, int status) noexcept;

/// True when libuv has taken the write over. A write that it refuses is logged; one of a closed stream goes silently,
/// as it would in the stream's close callback.
bool startWriteLocked(ZAL_IpcHandle_& ipc, ZAL_IpcWriteEntry& entry) noexcept ZAL_REQUIRES(ipc.lock) {
  if (uv_is_closing(&Stream::of(entry.stream).uv.handle) != 0) return false;
  const uv_buf_t buffer = uv_buf_init(static_cast<char*>(entry.buffer.get()), entry.length);
  entry.request.data = &ipc;
  const int status = uv_write(&entry.request, entry.stream, &buffer, 1, write_cleanup);
  logFailedWrite(&entry.request, status);
  entry.inFlight = status == 0;
  return entry.inFlight;
}

/// Starts the head. One that cannot start is completed on the spot, and the next takes its place.
void startNextWriteLocked(ZAL_IpcHandle_& ipc) noexcept ZAL_REQUIRES(ipc.lock) {
  while (ipc.writeQueue != nullptr && !ipc.writeQueue->inFlight && !startWriteLocked(ipc, *ipc.writeQueue))
    unlinkLocked(ipc, &ipc.writeQueue);
}

void write_cleanup(uv_write_t* request, int status) noexcept {
  ZAL_IpcHandle_& ipc = *static_cast<ZAL_IpcHandle_*>(request->data);
  logFailedWrite(request, status);
  const LockGuard hold{ipc.lock};
  ZAL_IpcWriteEntry** link = &ipc.writeQueue;
  while (&(*link)->request != request) link = &(*link)->next;
  unlinkLocked(ipc, link);
  startNextWriteLocked(ipc);  // this is the loop thread: the next write needs no wake-up
}

}  // namespace

void addLive(ZAL_IpcHandle_& ipc) noexcept {
  const std::lock_guard hold{liveLock};
  ipc.nextLive = liveHandles;
  liveHandles = &ipc;
}

void removeLive(ZAL_IpcHandle_& ipc) noexcept {
  const std::lock_guard hold{liveLock};
  ZAL_IpcHandle_** link = &liveHandles;
  while (*link != &ipc) link = &(*link)->nextLive;
  *link = ipc.nextLive;
}

bool appendWriteLocked(ZAL_IpcHandle_& ipc, uv_stream_t* stream, CPtr<void> buffer, std::uint32_t length) noexcept {
  std::unique_ptr<ZAL_IpcWriteEntry> entry{
      new (std::nothrow) ZAL_IpcWriteEntry{std::move(buffer), length, false, stream, nullptr, {}}};
  if (!entry) return false;
  const bool wasEmpty = ipc.writeQueue == nullptr;
  *ipc.writeTail = entry.release();
  ipc.writeTail = &(*ipc.writeTail)->next;
  if (wasEmpty) ZAL_EventLoop_AsyncSend(ipc.eventLoop);
  return true;
}

void dropWaitingWritesLocked(ZAL_IpcHandle_& ipc, const uv_stream_t* stream) noexcept {
  for (ZAL_IpcWriteEntry** link = &ipc.writeQueue; *link != nullptr;) {
    const ZAL_IpcWriteEntry& entry = **link;
    if (!entry.inFlight && (stream == nullptr || entry.stream == stream)) {
      unlinkLocked(ipc, link);
    } else {
      link = &(*link)->next;
    }
  }
}

}  // namespace zal::ipc

void ZAL_IPC_AsyncCb(uv_async_t* async) noexcept {
  using namespace zal::ipc;
  const std::lock_guard holdList{liveLock};
  for (ZAL_IpcHandle_* ipc = liveHandles; ipc != nullptr; ipc = ipc->nextLive) {
    if (ipc->loop != async->loop) continue;
    const zal::LockGuard hold{ipc->lock};
    startNextWriteLocked(*ipc);
  }
}
