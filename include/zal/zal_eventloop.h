/* The event loop: a named libuv loop with its own thread, a command queue for other threads, and its handles. */
#ifndef ZAL_EVENTLOOP_H
#define ZAL_EVENTLOOP_H

#include <stdint.h>
#include <uv.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** A loop record. */
typedef struct ZAL_EventLoopContext_* ZAL_EventLoopContext;
/** A file watch. */
typedef struct ZAL_EventLoopFsWatch_* ZAL_EventLoopFsWatch;

/** Receives a watched path's inotify event: the name it carries (never null) and its mask; on a worker thread. */
typedef void (*ZAL_EventLoopFsCallback)(ZAL_EventLoopFsWatch watch, const char* name, uint32_t mask);

ZAL_EXPORT ZAL_EventLoopContext ZAL_EventLoop_Create(int useDefaultLoop, const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_Run(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_Stop(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_Destroy(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_CloseHandle(ZAL_EventLoopContext loop, uv_handle_t* handle,
                                          uv_close_cb callback) ZAL_NOEXCEPT;
ZAL_EXPORT uv_loop_t* ZAL_EventLoop_GetLoop(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_EventLoop_Work(ZAL_EventLoopContext loop, uv_work_cb callback, void* data) ZAL_NOEXCEPT;
ZAL_EXPORT void uvAfterWork(uv_work_t* request, int status) ZAL_NOEXCEPT;

ZAL_EXPORT uv_timer_t* ZAL_EventLoop_StartTimer(ZAL_EventLoopContext loop, uv_timer_cb callback, uint64_t timeoutMs,
                                                uint64_t repeatMs, void* context) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_StopTimer(ZAL_EventLoopContext loop, uv_timer_t* timer) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_UpdateTimer(uv_timer_t* timer, uint64_t repeatMs) ZAL_NOEXCEPT;
ZAL_EXPORT void* ZAL_EventLoop_GetTimerContext(const void* handle) ZAL_NOEXCEPT;
ZAL_EXPORT uv_poll_t* ZAL_EventLoop_StartPoll(ZAL_EventLoopContext loop, uv_poll_cb callback, int descriptor,
                                              void* context) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_StopPoll(ZAL_EventLoopContext loop, uv_poll_t* poll) ZAL_NOEXCEPT;
ZAL_EXPORT void* ZAL_EventLoop_GetPollContext(const void* handle) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_EventLoopFsWatch ZAL_EventLoop_StartFs(ZAL_EventLoopContext loop, const char* path, uint32_t mask,
                                                      ZAL_EventLoopFsCallback callback) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_StopFs(ZAL_EventLoopContext loop, ZAL_EventLoopFsWatch watch) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_AsyncInit(ZAL_EventLoopContext loop, uv_async_cb callback, void* context) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_AsyncSend(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT void* ZAL_EventLoop_GetAsyncContext(const void* handle) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_EventLoop_IdleInit(ZAL_EventLoopContext loop, uv_idle_cb callback, void* context) ZAL_NOEXCEPT;
ZAL_EXPORT void* ZAL_EventLoop_GetIdleContext(const void* handle) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
