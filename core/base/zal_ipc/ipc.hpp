// What the rooms of the transport share: the handle, its streams, its queue of writes, and where a URL leads.
//
// endpoint.cpp reads URLs, stream.cpp makes streams and reads from them, closing.cpp ends streams and handles,
// write_queue.cpp writes, server.cpp and client.cpp speak for their side. Functions are for the loop thread unless they
// say otherwise; a name in ...Locked expects the handle's lock. The lock comes before the loop's queue lock and is
// never held while a callback of the application runs.
#pragma once

#include <netinet/in.h>
#include <sys/un.h>
#include <uv.h>
#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>
#include <zal/zal_tpl.h>
#include <zal/zal_uri.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/zal_eventloop.hpp"
#include "base/zal_ipc.hpp"
#include "support/indexed_list.hpp"
#include "support/invariant.hpp"
#include "support/lock.hpp"
#include "support/memory.hpp"

namespace zal::ipc {

enum Transport : int { kNoTransport = 0, kUnixDomain = 1, kTcp = 2 };

/// A callback of the application with the pointer it wants back.
template <class Function>
struct Callback {
  Function function;
  void* userData;
};

}  // namespace zal::ipc

/// One buffer that waits or is under way; those under way stand at the head of the queue.
struct ZAL_IpcWriteEntry {
  zal::CPtr<void> buffer;
  std::uint32_t length;
  bool inFlight;
  uv_stream_t* stream;
  ZAL_IpcWriteEntry* next;
};

/// One accepted connection, as the application knows it; part of its Stream.
struct ZAL_IpcClientContext_ {
  uv_stream_t* stream;
  ZAL_IpcHandle_* ipc;
  tpl_gather_state* gatherState;
  int disconnectPending;
};

namespace zal::ipc {

enum class Role { kListener, kAccepted, kClient };

/// A libuv stream of either kind. libuv's pointer to it is a pointer to this.
struct UvStream {
  union {
    uv_handle_t handle;
    uv_stream_t stream;
    uv_pipe_t pipe;
    uv_tcp_t tcp;
  } uv;
};
static_assert(std::is_standard_layout_v<UvStream>);

/// A libuv stream with what lives exactly as long as it. Freed by its close callback, or with its handle when the loop
/// that knew it was destroyed.
struct Stream : UvStream {
  ZAL_IpcHandle_* ipc;
  Role role;
  std::atomic<bool> closing;  // set once, under the lock, by whoever asks for the close
  Stream* next;
  Stream* previous;
  IndexLink<Stream> link;
  ReservedClose close;           // until the close is asked for
  ZAL_IpcClientContext_ client;  // used by an accepted stream

  [[nodiscard]] const ZAL_IpcClientContext_* key() const noexcept { return &client; }

  /// Of a uv_handle_t or uv_stream_t.
  template <class Uv>
  [[nodiscard]] static Stream& of(Uv* uv) noexcept {
    return static_cast<Stream&>(*reinterpret_cast<UvStream*>(uv));
  }
};

}  // namespace zal::ipc

/// One side of the transport. It lives until ZAL_IPC_UnInit, or, if libuv still knows streams of it then, until the
/// last of them is closed.
struct ZAL_IpcHandle_ {
  explicit ZAL_IpcHandle_(ZAL_EventLoopContext boundLoop) noexcept
      : loop{ZAL_EventLoop_GetLoop(boundLoop)}, eventLoop{boundLoop} {}
  ~ZAL_IpcHandle_();
  ZAL_IpcHandle_(const ZAL_IpcHandle_&) = delete;
  ZAL_IpcHandle_& operator=(const ZAL_IpcHandle_&) = delete;

  uv_loop_t* const loop;
  uv_pipe_t* pipe ZAL_GUARDED_BY(lock) = nullptr;
  uv_tcp_t* tcp ZAL_GUARDED_BY(lock) = nullptr;
  zal::ipc::Callback<ZAL_IpcMessageCallback> onMessage{};
  zal::ipc::Callback<ZAL_IpcServerEventCallback> onServerConnect{};
  zal::ipc::Callback<ZAL_IpcServerEventCallback> onServerDisconnect{};
  zal::ipc::Callback<ZAL_IpcClientEventCallback> onClientDisconnect{};
  zal::ipc::Callback<ZAL_IpcClientEventCallback> onClientConnect{};
  std::atomic<uv_connect_t*> connectRequest{nullptr};  // written under the lock, polled without it
  uv_stream_t* connectedStream ZAL_GUARDED_BY(lock) = nullptr;
  std::uint32_t connectionNumber ZAL_GUARDED_BY(lock) = zal::ipc::kAnyConnection;  // of connectedStream, or of the last
  ZAL_IpcWriteEntry* writeQueue ZAL_GUARDED_BY(lock) = nullptr;
  zal::Mutex lock;
  const ZAL_EventLoopContext eventLoop;
  int transport ZAL_GUARDED_BY(lock) = zal::ipc::kNoTransport;
  tpl_gather_state* gatherState = nullptr;  // of gatherStream; the loop thread's
  std::atomic<int> closePending{0};

  zal::ipc::Stream* gatherStream = nullptr;  // whose bytes gatherState holds; the loop thread's
  ZAL_IpcWriteEntry** writeTail ZAL_GUARDED_BY(lock) = &writeQueue;
  uv_write_t writeRequest{};   // of the one write that is in flight; the loop thread's
  zal::CPtr<char> readBuffer;  // between reads; the loop thread's
  zal::IndexedList<zal::ipc::Stream> streams ZAL_GUARDED_BY(lock);  // every stream that libuv may still know
  std::atomic<bool> abandoned{false};                               // ZAL_IPC_UnInit is done with it
  ZAL_IpcHandle_* nextLive = nullptr;                               // the list that ZAL_IPC_AsyncCb searches
};

namespace zal::ipc {

/// Calls the application, if it asked to be called and is not done with the handle.
template <class Function, class... Arguments>
void notify(const ZAL_IpcHandle_& ipc, const Callback<Function>& callback, Arguments... arguments) noexcept {
  if (callback.function != nullptr && !ipc.abandoned) callback.function(arguments..., callback.userData);
}

/// For invariants: the callbacks of libuv come on the thread of the loop.
[[nodiscard]] inline bool isOnLoop(const ZAL_IpcHandle_& ipc) noexcept {
  return isLoopThread(ipc.eventLoop);
}

// endpoint.cpp, any thread

/// Where a URL leads.
struct Endpoint {
  Transport transport;
  char path[sizeof(sockaddr_un::sun_path)];
  sockaddr_in address;
};

/// The transport that a URL names, kNoTransport for other schemes.
[[nodiscard]] Transport transportOf(const char* url) noexcept;
/// Where a server listens for `url`; nothing when the URL is not valid.
[[nodiscard]] std::optional<Endpoint> listenEndpoint(const char* url) noexcept;
/// Where a client connects for `url`, which `uri` has parsed; nothing when it is not valid.
[[nodiscard]] std::optional<Endpoint> connectEndpoint(const char* url, ZAL_UriParserHandle uri) noexcept;

// stream.cpp

/// The block that libuv has read into. It goes back to the handle, for the next read of any stream.
class ReadBlock {
 public:
  ReadBlock(uv_stream_t* stream, const uv_buf_t& buffer) noexcept
      : ipc_{*Stream::of(stream).ipc}, bytes_{buffer.base} {}
  ~ReadBlock() {
    ZAL_INVARIANT(!bytes_ || !ipc_.readBuffer);
    ipc_.readBuffer = std::move(bytes_);
  }
  ReadBlock(const ReadBlock&) = delete;
  ReadBlock& operator=(const ReadBlock&) = delete;

 private:
  ZAL_IpcHandle_& ipc_;
  CPtr<char> bytes_;
};

/// Makes and initialises a stream of the handle's loop; null, with a log line, when that fails. A listener or a
/// client's stream becomes the handle's pipe or tcp. Its `data` is the context of an accepted stream, else the handle.
[[nodiscard]] Stream* openStream(ZAL_IpcHandle_& ipc, Transport transport, Role role) noexcept;
/// Starts reading unless the stream is to be closed; a failure goes to `onRead` like any read error. It holds its
/// buffer in a ReadBlock.
void startReading(Stream& stream, uv_read_cb onRead) noexcept;
/// Feeds a block of the stream to the engine, which calls `onImage` for each image that it completes.
void gather(tpl_gather_state*& pending, const uv_buf_t& buffer, ssize_t count, tpl_gather_callback onImage,
            void* data) noexcept;
/// Hands an image to the message callback, unless the stream is to be closed.
void deliver(const Stream& stream, void* image, std::size_t length, void* source) noexcept;
void freeGatherState(tpl_gather_state*& pending) noexcept;

// closing.cpp

/// Any thread. Counts the stream's close and hands it to the event loop, once; later requests, and those for a stream
/// that its loop has closed, do nothing. `function` is named in the log.
void requestCloseLocked(ZAL_IpcHandle_& ipc, Stream& stream, const char* function) noexcept ZAL_REQUIRES(ipc.lock);
void onCloseClientSide(uv_handle_t* handle) noexcept;
void onCloseServerSide(uv_handle_t* handle) noexcept;
void onCloseServerListener(uv_handle_t* handle) noexcept;
/// Any thread. Frees the handle, now or when the last of its streams is closed.
void abandon(ZAL_IpcHandle_* ipc) noexcept;

// write_queue.cpp

/// Any thread. Lets the wake-ups of the handle's loop reach the handle, until removeLive.
void addLive(ZAL_IpcHandle_& ipc) noexcept;
void removeLive(ZAL_IpcHandle_& ipc) noexcept;
/// What became of a write: not queued, since memory ran out, and its buffer freed; the first of the queue, so that the
/// loop must be woken; or behind others.
enum class Queued { kNot, kFirst, kBehind };

/// Any thread.
[[nodiscard]] Queued appendWriteLocked(ZAL_IpcHandle_& ipc, uv_stream_t* stream, CPtr<void> buffer,
                                       std::uint32_t length) noexcept ZAL_REQUIRES(ipc.lock);
/// Any thread. Frees the waiting writes of a stream, or of all when it is null; those in flight belong to libuv.
void dropWaitingWritesLocked(ZAL_IpcHandle_& ipc, const uv_stream_t* stream) noexcept ZAL_REQUIRES(ipc.lock);

// server.cpp

int ZAL_IPC_ServerCreateDomainSocket(ZAL_IpcHandle ipc, const char* path) noexcept;
int serverCreateTcpSocket(ZAL_IpcHandle ipc, const sockaddr_in& address) noexcept;
/// The listener that has not been asked to close, or null.
[[nodiscard]] Stream* listenerLocked(ZAL_IpcHandle_& ipc) noexcept ZAL_REQUIRES(ipc.lock);
/// Any thread. The stream of a context that is alive and not closing, or null.
[[nodiscard]] uv_stream_t* writableStreamLocked(ZAL_IpcHandle_& ipc, const ZAL_IpcClientContext_* client) noexcept
    ZAL_REQUIRES(ipc.lock);
/// Reports the end of an accepted connection, once.
void reportClientGone(ZAL_IpcClientContext_& client) noexcept;

// client.cpp

/// Starts a connect; its outcome is reported by one of the two server callbacks. False when memory runs out.
[[nodiscard]] bool startConnect(ZAL_IpcHandle_& ipc, const Endpoint& endpoint) noexcept;

}  // namespace zal::ipc

/// The loop's user async: starts the next write of the handle bound to the loop.
extern "C" void ZAL_IPC_AsyncCb(uv_async_t* async) noexcept;
