// File watches: an inotify instance each, read by a job that holds one thread of libuv's pool until the watch ends.
// The watch belongs to that job; all that other threads do is to clear its running flag.
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"

struct ZAL_EventLoopFsWatch_ {
  static constexpr std::size_t kBufferSize = 8192;

  int inotify = -1;
  int watch = -1;
  std::atomic<std::uint8_t> isRunning{0};
  ZAL_EventLoopFsCallback callback = nullptr;
  const zal::eventloop::Loop* loop = nullptr;  ///< lives longer: its destruction waits for the job
  std::array<char, kBufferSize> buffer;        ///< here, so that the job does not fail for want of memory

  ZAL_EventLoopFsWatch_() = default;
  ~ZAL_EventLoopFsWatch_() {
    if (watch != -1) inotify_rm_watch(inotify, watch);
    if (inotify != -1) close(inotify);
  }
  ZAL_EventLoopFsWatch_(const ZAL_EventLoopFsWatch_&) = delete;
  ZAL_EventLoopFsWatch_& operator=(const ZAL_EventLoopFsWatch_&) = delete;
};

namespace zal::eventloop {
namespace {

using Watch = ZAL_EventLoopFsWatch_;

constexpr int kPollMs = 1000;
constexpr char kStarter[] = "ZAL_EventLoop_StartFs";

std::atomic<bool> isExiting{false};

/// libuv joins its pool at the end of the process, which a watch that nobody stopped would hold up for ever.
const struct EndAtExit {
  ~EndAtExit() { isExiting.store(true); }
} endAtExit;

/// A watch ends when it is stopped, or with its loop, or with the process; not by itself, since a stop may yet come.
bool shallRun(const Watch& watch) noexcept {
  return watch.isRunning.load() != 0 && watch.loop->phase.load() != Phase::kClosing && !isExiting.load();
}

/// Hands each event in `bytes` to the callback. The bytes are copied out, since events need not stand aligned.
void deliver(Watch& watch, std::string_view bytes) noexcept {
  inotify_event event{};
  while (bytes.size() >= sizeof event) {
    std::memcpy(&event, bytes.data(), sizeof event);
    bytes.remove_prefix(sizeof event);
    if (event.len > bytes.size()) return;
    watch.callback(&watch, event.len > 0 ? bytes.data() : "", event.mask);
    bytes.remove_prefix(event.len);
  }
}

/// Waits for events for one time-out at most and delivers them. What fails is tried again after the time-out.
void serveOnce(Watch& watch) noexcept {
  pollfd waiting{watch.inotify, POLLIN, 0};
  const int ready = poll(&waiting, 1, kPollMs);
  if (ready == 0 || !shallRun(watch)) return;
  const ssize_t count = ready > 0 ? read(watch.inotify, watch.buffer.data(), watch.buffer.size()) : -1;
  if (count > 0) return deliver(watch, {watch.buffer.data(), static_cast<std::size_t>(count)});
  if (errno != EINTR) poll(nullptr, 0, kPollMs);
}

/// The job of a watch, on a thread of the pool.
void fs_work_cb(uv_work_t* request) noexcept {
  const std::unique_ptr<Watch> watch{static_cast<Watch*>(request->data)};
  while (shallRun(*watch)) serveOnce(*watch);
}

}  // namespace

ZAL_EventLoopFsWatch startWatch(Loop& loop, const char* path, std::uint32_t mask,
                                ZAL_EventLoopFsCallback callback) noexcept {
  std::unique_ptr<Watch> watch{new (std::nothrow) Watch{}};
  if (!watch) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kStarter, "Unable to allocate memory for a file watch\n");
    return nullptr;
  }
  watch->inotify = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (watch->inotify == -1) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kStarter, "inotify_init failed");
    return nullptr;
  }
  watch->callback = callback;
  watch->loop = &loop;
  watch->watch = inotify_add_watch(watch->inotify, path, mask);
  if (watch->watch == -1) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kStarter, "inotify_add_watch failed\n");
    return nullptr;
  }
  watch->isRunning.store(1);  // before the job: a stop that comes first must not be lost
  if (queueWork(loop, fs_work_cb, watch.get()) != 0) return nullptr;
  return watch.release();
}

void stopWatch(ZAL_EventLoopFsWatch watch) noexcept {
  watch->isRunning.store(0);
}

}  // namespace zal::eventloop
