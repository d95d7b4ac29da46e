// The event loop's exported functions: each checks what it is given and calls one of the rooms in zal_eventloop/.
#include <zal/zal_eventloop.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/zal_eventloop.hpp"
#include "base/zal_eventloop/eventloop.hpp"
#include "support/log.hpp"

namespace loops = zal::eventloop;

namespace {

/// The context of any libuv handle or request is its first field.
void* contextOf(const void* handle) noexcept {
  return handle == nullptr ? nullptr : *static_cast<void* const*>(handle);
}
static_assert(offsetof(uv_handle_t, data) == 0 && offsetof(uv_req_t, data) == 0);

}  // namespace

extern "C" {

ZAL_EventLoopContext ZAL_EventLoop_Create(int useDefaultLoop, const char* name) noexcept {
  return useDefaultLoop != 0 ? loops::shareDefault(name) : loops::createOwn(name);
}

void ZAL_EventLoop_Run(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr)
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid handle to EventLoop_Run");
  else
    loops::run(*loop);
}

void ZAL_EventLoop_Stop(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr)
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid handle to EventLoop_Stop\n");
  else
    loops::stop(*loop);
}

void ZAL_EventLoop_Destroy(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid handle to EventLoop_Destroy");
    return;
  }
  const loops::Release release = loops::release(*loop);
  if (release == loops::Release::kRefused)
    ZAL_LOG(ZAL_LOG_ERROR, "Event Loop (%s) cannot be destroyed on its own thread\n", loops::nameOf(*loop));
  if (release == loops::Release::kLast) loops::destroy(std::unique_ptr<loops::Loop>{loop});
}

void ZAL_EventLoop_CloseHandle(ZAL_EventLoopContext loop, uv_handle_t* handle, uv_close_cb callback) noexcept {
  if (loop == nullptr || handle == nullptr)
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to CloseHandle\n");
  else if (zal::ReservedClose close = zal::reserveClose())
    loops::closeHandle(*loop, handle, callback, std::move(close));
}

uv_loop_t* ZAL_EventLoop_GetLoop(ZAL_EventLoopContext loop) noexcept {
  return loop == nullptr ? nullptr : loop->loop;
}

int ZAL_EventLoop_Work(ZAL_EventLoopContext loop, uv_work_cb callback, void* data) noexcept {
  if (loop == nullptr || callback == nullptr) return UV_EINVAL;
  return loops::queueWork(*loop, callback, data);
}

void uvAfterWork(uv_work_t* request, int /*status*/) noexcept {
  std::free(request);
}

uv_timer_t* ZAL_EventLoop_StartTimer(ZAL_EventLoopContext loop, uv_timer_cb callback, uint64_t timeoutMs,
                                     uint64_t repeatMs, void* context) noexcept {
  if (loop == nullptr || callback == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to StartTimer\n");
    return nullptr;
  }
  return loops::startTimer(*loop, callback, timeoutMs, repeatMs, context);
}

void ZAL_EventLoop_StopTimer(ZAL_EventLoopContext loop, uv_timer_t* timer) noexcept {
  if (loop == nullptr || timer == nullptr)
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to StopTimer\n");
  else
    loops::requestStop(*loop, loops::ZAL_EVENTLOOP_CMD_STOP_TIMER, loops::asHandle(timer), __func__);
}

void ZAL_EventLoop_UpdateTimer(uv_timer_t* timer, uint64_t repeatMs) noexcept {
  if (timer != nullptr) uv_timer_set_repeat(timer, repeatMs);
}

void* ZAL_EventLoop_GetTimerContext(const void* handle) noexcept {
  return contextOf(handle);
}

uv_poll_t* ZAL_EventLoop_StartPoll(ZAL_EventLoopContext loop, uv_poll_cb callback, int descriptor,
                                   void* context) noexcept {
  if (loop == nullptr || callback == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to StartPoll\n");
    return nullptr;
  }
  return loops::startPoll(*loop, callback, descriptor, context);
}

void ZAL_EventLoop_StopPoll(ZAL_EventLoopContext loop, uv_poll_t* poll) noexcept {
  if (loop == nullptr || poll == nullptr)
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to StopPoll\n");
  else
    loops::requestStop(*loop, loops::ZAL_EVENTLOOP_CMD_STOP_POLL, loops::asHandle(poll), __func__);
}

void* ZAL_EventLoop_GetPollContext(const void* handle) noexcept {
  return contextOf(handle);
}

ZAL_EventLoopFsWatch ZAL_EventLoop_StartFs(ZAL_EventLoopContext loop, const char* path, uint32_t mask,
                                           ZAL_EventLoopFsCallback callback) noexcept {
  if (loop == nullptr || path == nullptr || callback == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input parameter to StartFs\n");
    return nullptr;
  }
  return loops::startWatch(*loop, path, mask, callback);
}

void ZAL_EventLoop_StopFs(ZAL_EventLoopContext /*loop*/, ZAL_EventLoopFsWatch watch) noexcept {
  if (watch != nullptr) loops::stopWatch(watch);
}

void ZAL_EventLoop_AsyncInit(ZAL_EventLoopContext loop, uv_async_cb callback, void* context) noexcept {
  if (loop != nullptr) static_cast<void>(loops::initAsync(*loop, callback, context));  // a failure is logged there
}

void ZAL_EventLoop_AsyncSend(ZAL_EventLoopContext loop) noexcept {
  if (loop == nullptr) return;
  if (loops::hasFlag(*loop, loops::kUserAsyncInstalled))
    loops::sendAsync(*loop);
  else
    ZAL_LOG(ZAL_LOG_INFO, "%s: Event Loop (%s) has no Async Event\n", __func__, loops::nameOf(*loop));
}

void* ZAL_EventLoop_GetAsyncContext(const void* handle) noexcept {
  return contextOf(handle);
}

void ZAL_EventLoop_IdleInit(ZAL_EventLoopContext loop, uv_idle_cb callback, void* context) noexcept {
  if (loop != nullptr && callback != nullptr) loops::initIdle(*loop, callback, context);
}

void* ZAL_EventLoop_GetIdleContext(const void* handle) noexcept {
  return contextOf(handle);
}

}  // extern "C"
