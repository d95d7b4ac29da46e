// The write queue of a handle: buffers wait here until the loop thread writes them, in order. What waits for one stream
// leaves in one write of several buffers, and one such write is in flight at a time.
// Appending and dropping are for any thread, writing and completing for the loop thread. A queue whose head waits has
// a wake-up under way; what is in flight stands at its head.

#include <algorithm>
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
  ZAL_INVARIANT((ipc.writeTail == &entry->next) == (entry->next == nullptr));
  *link = entry->next;
  if (ipc.writeTail == &entry->next) ipc.writeTail = link;
  return entry;
}

void logFailedWrite(const uv_write_t* request, int status) noexcept {
  if (status == 0) return;
  ZAL_LOG_AS(ZAL_LOG_ERROR, "write_cleanup", "%s: req=%p, status=%d %s\n", "write_cleanup",
             static_cast<const void*>(request), status, uv_strerror(status));
}

/// One write: the buffers at the head of the queue that go to the same stream.
struct Batch {
  static constexpr unsigned kMost = 64;

  uv_stream_t* stream = nullptr;
  unsigned count = 0;
  uv_buf_t buffers[kMost];
};

/// Puts the head of the queue in flight, with what follows it to the same stream. False when there is nothing to write
/// now.
bool launchLocked(ZAL_IpcHandle_& ipc, Batch& batch) noexcept ZAL_REQUIRES(ipc.lock) {
  ZAL_IpcWriteEntry* entry = ipc.writeQueue;
  if (entry == nullptr || entry->inFlight) return false;
  batch.stream = entry->stream;
  for (; entry != nullptr && entry->stream == batch.stream && batch.count < Batch::kMost; entry = entry->next) {
    entry->inFlight = true;
    batch.buffers[batch.count++] = uv_buf_init(static_cast<char*>(entry->buffer.get()), entry->length);
  }
  return true;
}

/// Writes what the socket takes at once, and leaves in the batch what it does not. Failures are left to the write that
/// follows, which reports them.
void writeAtOnce(Batch& batch) noexcept {
  const int result = uv_try_write(batch.stream, batch.buffers, batch.count);
  std::size_t written = result > 0 ? static_cast<std::size_t>(result) : 0;
  const uv_buf_t* first = batch.buffers;
  for (; batch.count > 0 && written >= first->len; --batch.count) written -= first++->len;
  std::copy_n(first, batch.count, batch.buffers);
  if (batch.count == 0) return;
  ZAL_INVARIANT(written < batch.buffers[0].len);
  batch.buffers[0].base += written;
  batch.buffers[0].len -= written;
}

void write_cleanup(uv_write_t* request, int status) noexcept;

/// True when libuv has taken the write over.
bool startWrite(ZAL_IpcHandle_& ipc, const Batch& batch) noexcept {
  ipc.writeRequest.data = &ipc;
  const int status = uv_write(&ipc.writeRequest, batch.stream, batch.buffers, batch.count, write_cleanup);
  logFailedWrite(&ipc.writeRequest, status);
  return status == 0;
}

void completeLocked(ZAL_IpcHandle_& ipc, unsigned count) noexcept ZAL_REQUIRES(ipc.lock) {
  while (count-- > 0) {
    ZAL_INVARIANT(ipc.writeQueue != nullptr && ipc.writeQueue->inFlight);
    unlinkLocked(ipc, &ipc.writeQueue);
  }
}

/// Writes what waits. The lock is not held meanwhile: what is in flight stays at the head, and streams are closed on
/// this thread alone.
void flush(ZAL_IpcHandle_& ipc) noexcept {
  ZAL_INVARIANT(isOnLoop(ipc));
  constexpr int kAtOnce = 4;  // then the loop's other handles get their turn
  for (int round = 0;; ++round) {
    Batch batch;
    {
      const LockGuard hold{ipc.lock};
      if (!launchLocked(ipc, batch)) return;
    }
    const unsigned launched = batch.count;
    // The writes of a closed stream go silently, as they would in the stream's close callback.
    const bool isOpen = uv_is_closing(&Stream::of(batch.stream).uv.handle) == 0;
    if (isOpen && round < kAtOnce) writeAtOnce(batch);
    const bool isUnderWay = isOpen && batch.count > 0 && startWrite(ipc, batch);
    const LockGuard hold{ipc.lock};
    completeLocked(ipc, isUnderWay ? launched - batch.count : launched);
    if (isUnderWay) return;
  }
}

void write_cleanup(uv_write_t* request, int status) noexcept {
  ZAL_IpcHandle_& ipc = *static_cast<ZAL_IpcHandle_*>(request->data);
  logFailedWrite(request, status);
  {
    const LockGuard hold{ipc.lock};
    while (ipc.writeQueue != nullptr && ipc.writeQueue->inFlight) unlinkLocked(ipc, &ipc.writeQueue);
  }
  flush(ipc);  // this is the loop thread: what has come meanwhile needs no wake-up
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

Queued appendWriteLocked(ZAL_IpcHandle_& ipc, uv_stream_t* stream, CPtr<void> buffer, std::uint32_t length) noexcept {
  std::unique_ptr<ZAL_IpcWriteEntry> entry{new (std::nothrow)
                                               ZAL_IpcWriteEntry{std::move(buffer), length, false, stream, nullptr}};
  if (!entry) return Queued::kNot;
  const bool wasEmpty = ipc.writeQueue == nullptr;
  ZAL_INVARIANT(*ipc.writeTail == nullptr && (ipc.writeTail == &ipc.writeQueue) == wasEmpty);
  *ipc.writeTail = entry.release();
  ipc.writeTail = &(*ipc.writeTail)->next;
  return wasEmpty ? Queued::kFirst : Queued::kBehind;
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
    if (ipc->loop == async->loop) flush(*ipc);
  }
}
