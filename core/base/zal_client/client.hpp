// The records of the client runtime, and what its rooms offer each other.
//
// Threads: the loop thread runs the connect timer and the transport's callbacks; worker threads run every job, and so
// every function of the application; all exported functions are for the application's own threads and for jobs.
// Lock order: lifecycleMutex, then the transport's and the loop's locks; the others are leaves, but for
// callbackMutex being held while an application callback runs.
#pragma once

#include <zal/zal_client.h>
#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_log.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "base/zal_client/work_queue.hpp"
#include "base/zal_eventloop.hpp"
#include "base/zal_ipc.hpp"
#include "base/zal_ipccommand.hpp"
#include "support/indexed_list.hpp"
#include "support/invariant.hpp"
#include "support/lock.hpp"

namespace zal {

/// An owning list that grows at its head, so that a walk meets the newest entry first.
template <class Node>
class HeadList {
 public:
  HeadList() = default;
  HeadList(const HeadList&) = delete;
  HeadList& operator=(const HeadList&) = delete;
  ~HeadList() { clear(); }

  [[nodiscard]] Node* head() const noexcept { return head_; }

  /// The first entry for which `matches` holds, or null.
  template <class Predicate>
  [[nodiscard]] Node* find(Predicate matches) const noexcept {
    Node* node = head();
    while (node != nullptr && !matches(*node)) node = node->next;
    return node;
  }

  void push(std::unique_ptr<Node> node) noexcept {
    node->next = head_;
    head_ = node.release();
  }

  void clear() noexcept {
    Node* node = release();
    while (node != nullptr) {
      const std::unique_ptr<Node> last{node};
      node = node->next;
    }
  }

  /// Gives the entries up without freeing them.
  Node* release() noexcept { return std::exchange(head_, nullptr); }

 private:
  Node* head_ = nullptr;
};

template <class Function>
struct CallbackEntry {
  Function function;
  void* userData;
  CallbackEntry* next;
};
using EventCallbackList = HeadList<CallbackEntry<ZAL_ClientEventCallback>>;
using ConfigCallbackList = HeadList<CallbackEntry<ZAL_ConfigChangeCallback>>;

/// What a method does.
struct MethodHandler {
  ZAL_MethodCallback handler;
  void* userData;
  ZAL_DatasetCallback pathHandler;  // a telemetry dataset's; called when handler is null
};

struct Method {
  char name[256];
  MethodHandler call;
  Method* next;
  Method* previous;
  IndexLink<Method> link;

  [[nodiscard]] std::string_view key() const noexcept { return name; }
};

/// A gateway request that was written and not yet answered.
struct PendingRequest {
  std::uint16_t requestId;
  ZAL_GatewayResponseCallback callback;
  void* userData;
  PendingRequest* next;
  PendingRequest* previous;
  IndexLink<PendingRequest> link;

  [[nodiscard]] std::uint16_t key() const noexcept { return requestId; }
};

struct ObjectDestroy {
  void operator()(ZAL_ObjectHandle object) const noexcept { ZAL_Object_Destroy(object); }
};
using ObjectPtr = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, ObjectDestroy>;

struct MessageDestroy {
  void operator()(ZAL_MessageHandle message) const noexcept { ZAL_Message_Destroy(message); }
};
using MessagePtr = std::unique_ptr<std::remove_pointer_t<ZAL_MessageHandle>, MessageDestroy>;

struct CommandListDestroy {
  void operator()(ZAL_IpcCommandList list) const noexcept { ZAL_IpcCommand_Destroy(list); }
};
using CommandListPtr = std::unique_ptr<std::remove_pointer_t<ZAL_IpcCommandList>, CommandListDestroy>;

struct CommandDestroy {
  void operator()(ZAL_IpcCommand* command) const noexcept {
    if (command->payloadSize != 0) std::free(command->payload);
    std::free(command);
  }
};
/// A record off every list, with its payload.
using CommandPtr = std::unique_ptr<ZAL_IpcCommand, CommandDestroy>;

/// A new zeroed record; null when memory runs out.
inline CommandPtr makeCommand() noexcept {
  return CommandPtr{static_cast<ZAL_IpcCommand*>(std::calloc(1, sizeof(ZAL_IpcCommand)))};
}

/// Counts the jobs of one client that are queued or running, so that teardown can wait for the last.
class JobCounter {
 public:
  JobCounter() = default;
  ~JobCounter() { ZAL_INVARIANT(count_ == 0); }
  JobCounter(const JobCounter&) = delete;
  JobCounter& operator=(const JobCounter&) = delete;

  [[nodiscard]] bool valid() const noexcept { return mutex_.valid() && idle_ != nullptr; }
  /// False once the counter is closed: no job may start any more.
  [[nodiscard]] bool begin() noexcept;
  void end() noexcept;
  /// Refuses further jobs and returns when none is left. One caller at a time.
  void closeAndWait() noexcept;

 private:
  Mutex mutex_;
  CondPtr idle_{ZAL_Cond_Create()};
  std::size_t count_ ZAL_GUARDED_BY(mutex_) = 0;
  bool closed_ ZAL_GUARDED_BY(mutex_) = false;
};

inline constexpr std::uint8_t kStarted = 1;    // bit 0 of the client's flags
inline constexpr std::uint8_t kConnected = 2;  // bit 1

}  // namespace zal

struct ZAL_ServiceHandle_ {
  char name[256];  // first, so that a handle can stand where the name is expected
  zal::IndexedList<zal::Method> methods ZAL_GUARDED_BY(methodsMutex);
  ZAL_ServiceHandle_* next;

  ZAL_ServiceHandle_* previous;
  zal::IndexLink<ZAL_ServiceHandle_> link;
  zal::Mutex methodsMutex;

  [[nodiscard]] std::string_view key() const noexcept { return name; }
};

struct ZAL_ClientHandle_ {
  ZAL_EventLoopContext loop = nullptr;
  std::atomic<std::uint8_t> flags{0};
  ZAL_ClientOptions options{};
  zal::EventCallbackList connectCallbacks ZAL_GUARDED_BY(callbackMutex);
  zal::EventCallbackList disconnectCallbacks ZAL_GUARDED_BY(callbackMutex);
  zal::ConfigCallbackList configChangeCallbacks ZAL_GUARDED_BY(callbackMutex);
  zal::IndexedList<ZAL_ServiceHandle_> services ZAL_GUARDED_BY(servicesMutex);  // walked without it, from the head on
  zal::IndexedList<zal::PendingRequest> pendingRequests;  // under the gateway lock of the process (gateway.cpp)
  zal::CondPtr connectedCond{ZAL_Cond_Create()};
  zal::ObjectPtr config ZAL_GUARDED_BY(configMutex);
  zal::Mutex configMutex;
  zal::Mutex callbackMutex;
  ZAL_IpcHandle ipc = nullptr;
  uv_timer_t connectTimer{};  // the loop thread's, or of whoever starts and stops the loop
  zal::ReservedClose connectTimerClose{zal::reserveClose()};
  std::int32_t retryInterval = 0;
  std::atomic<std::uint8_t> configPending{0};
  std::uint32_t connection = zal::ipc::kAnyConnection;  // the transport's number of the present one; the loop thread's

  mutable zal::Mutex servicesMutex;  // held while a service is looked up or added
  zal::Mutex lifecycleMutex;         // held by whoever starts or stops the loop
  bool closed ZAL_GUARDED_BY(lifecycleMutex) = false;
  zal::JobCounter jobs;
  zal::WorkQueue work;

  [[nodiscard]] bool valid() const noexcept {
    return connectedCond != nullptr && connectTimerClose != nullptr && configMutex.valid() && callbackMutex.valid() &&
           servicesMutex.valid() && lifecycleMutex.valid() && jobs.valid() && work.valid();
  }
  [[nodiscard]] bool isStarted() const noexcept { return (flags.load() & zal::kStarted) != 0; }
  [[nodiscard]] bool isConnected() const noexcept { return (flags.load() & zal::kConnected) != 0; }
};

/// What travels to a worker: one command, and for a gateway request who waits for the answer.
struct ZAL_ClientWorkItem_ {
  ZAL_ClientHandle client = nullptr;
  zal::CommandPtr command;
  std::uint16_t requestId = 0;
  std::uint32_t connection = zal::ipc::kAnyConnection;  // the one by which the command came, to be answered there
  ZAL_GatewayResponseCallback callback = nullptr;
  void* userData = nullptr;
  ZAL_ClientWorkItem_* next = nullptr;
};

namespace zal {

// jobs.cpp

/// Queues `work` for a worker thread, with `data` as its request's data. Any thread.
/// @return false when the job cannot be queued; `data` then stays the caller's
[[nodiscard]] bool postJob(ZAL_ClientHandle_& client, uv_work_cb work, void* data) noexcept;
/// Has a worker do what the item's command asks for; the item is freed when that cannot be. Any thread.
void postWorkItem(WorkItemPtr item) noexcept;
/// Has a worker ready while the connection is made: libuv starts its threads with the first job. Any thread.
void readyWorker(ZAL_ClientHandle_& client) noexcept;
/// True on a worker thread inside a job of any client.
[[nodiscard]] bool runsJob() noexcept;

// connection.cpp

[[nodiscard]] ZAL_ClientHandle_* createClient(const ZAL_ClientOptions& options) noexcept;
void startClient(ZAL_ClientHandle_& client) noexcept;
void stopClient(ZAL_ClientHandle_& client) noexcept;
/// Stops the client for good and waits for its jobs; false, with a log line, on a worker, which they may need, and on
/// the loop thread.
[[nodiscard]] bool quiesceClient(ZAL_ClientHandle_& client, const char* caller) noexcept;
/// Destroys the loop of a client that is at rest.
void destroyLoop(ZAL_ClientHandle_& client) noexcept;
/// Gives up what the short teardown does not release: lists, services, pending requests and configuration.
void forsakeContents(ZAL_ClientHandle_& client) noexcept;
/// Encodes the list and hands it to the transport. Any thread.
void writeList(ZAL_ClientHandle_& client, ZAL_IpcCommandList list) noexcept;
/// The same for records that are borrowed, in the order in which they stand in the image, and that are for one
/// connection: a reply that comes too late for it is dropped. Any thread.
void writeCommands(ZAL_ClientHandle_& client, std::span<const CommandView> commands,
                   std::uint32_t connection = ipc::kAnyConnection) noexcept;

// services.cpp

/// The service of exactly this name, or null. Any thread.
[[nodiscard]] ZAL_ServiceHandle_* findService(const ZAL_ClientHandle_& client, const char* name) noexcept;
/// The first service whose name the given one begins with, or null. Any thread.
[[nodiscard]] ZAL_ServiceHandle_* findServiceByPrefix(const ZAL_ClientHandle_& client, const char* name) noexcept;
/// What the method of exactly this name does, copied: another thread may change or remove it meanwhile. Any thread.
[[nodiscard]] std::optional<MethodHandler> findMethod(ZAL_ServiceHandle_& service, const char* name) noexcept;
[[nodiscard]] std::unique_ptr<ZAL_ServiceHandle_> makeService(const char* name) noexcept;
/// Takes the service unless one of its name is there; then it stays the caller's. Any thread.
void addService(ZAL_ClientHandle_& client, ZAL_ServiceHandle_& service) noexcept;
void subscribeServices(ZAL_ClientHandle_& client) noexcept;

/// What one call changes in a service's entry of a name.
struct MethodChange {
  const char* name;
  bool removes;          // the new handler is null: an entry that exists goes
  const char* group;     // the service's name in the log lines
  const char* function;  // the exported function that speaks
};
/// What to set of the entry, which is made when there is none; null when the entry was removed or memory ran out.
[[nodiscard]] MethodHandler* changeMethodLocked(ZAL_ServiceHandle_& service, const MethodChange& change) noexcept
    ZAL_REQUIRES(service.methodsMutex);

// callbacks.cpp

/// What a profile-change job carries.
struct ProfileJob {
  ZAL_ClientHandle_* client;
  char service[256];
};

/// Adds the callback unless the list holds its function already. Any thread outside an application callback.
void addEventCallback(ZAL_ClientHandle_& client, EventCallbackList ZAL_ClientHandle_::*list,
                      ZAL_ClientEventCallback callback, void* userData, const char* caller) noexcept;
void addConfigCallback(ZAL_ClientHandle_& client, ZAL_ConfigChangeCallback callback, void* userData) noexcept;
/// Worker thread.
void runEventCallbacks(ZAL_ClientHandle_& client, EventCallbackList ZAL_ClientHandle_::*list, unsigned flag) noexcept;
void runConfigCallbacks(ProfileJob& job) noexcept;
/// Announces a changed profile to the application. Loop thread.
void postProfileChanged(ZAL_ClientHandle_& client, const char* service) noexcept;

// configuration.cpp

/// Replaces the stored document; false, and nothing changes, when the text is no JSON. Any thread.
[[nodiscard]] bool storeConfiguration(ZAL_ClientHandle_& client, const char* text, std::size_t length) noexcept;
/// A copy of the stored document or of its member at `path`; null when there is none. Any thread.
[[nodiscard]] ZAL_ObjectHandle copyConfiguration(ZAL_ClientHandle_& client, const char* path) noexcept;

// dispatch.cpp

/// Hands every record of an image to whom it concerns. Loop thread.
void dispatchImage(ZAL_ClientHandle_& client, const void* image, std::uint32_t size) noexcept;
/// Does what a command asks for. Worker thread.
void work(WorkItemPtr item) noexcept;

// gateway.cpp

/// Gives the request its id, remembers who waits, and writes it. Worker thread.
void sendGatewayRequest(ZAL_ClientWorkItem_& item) noexcept;
/// Calls back whoever waits for this answer. Worker thread.
void deliverGatewayResponse(ZAL_ClientWorkItem_& item) noexcept;

// events.cpp

/// Takes the message; `service` may be null for none.
void sendEvent(ZAL_ClientHandle_* client, const char* service, MessagePtr message) noexcept;

}  // namespace zal

/// Asks the agent for this client's configuration. Loop thread; internal.
extern "C" void ZAL_Client_GetConfigurationRemote(ZAL_ClientHandle client) ZAL_NOEXCEPT;
