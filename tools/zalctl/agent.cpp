#include "agent.hpp"

#include <uv.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace zalctl {
namespace {

/// The id that a client gives to requests it makes of itself.
constexpr std::uint16_t kOwnRequestId = 65535;
constexpr std::chrono::seconds kSettleLimit{1};

/// The transport does not tell whether it could bind, but a socket that listens is active.
bool hasListener(ZAL_EventLoopContext loop) {
  bool found = false;
  const auto look = [](uv_handle_t* handle, void* result) {
    const bool isSocket = handle->type == UV_NAMED_PIPE || handle->type == UV_TCP;
    if (isSocket && uv_is_active(handle) != 0) *static_cast<bool*>(result) = true;
  };
  uv_walk(ZAL_EventLoop_GetLoop(loop), look, &found);
  return found;
}

std::string nameOf(const Session& session) {
  return "client " + std::to_string(session.number());
}

std::string titleOf(const Record& record) {
  return printable(record.service) + ' ' + printable(record.name);
}

}  // namespace

Agent::Agent(Waiter& waiter, Printer& printer)
    : waiter_{waiter}, printer_{printer}, loop_{ZAL_EventLoop_Create(0, "zalctl")} {
  if (loop_ == nullptr) throw std::runtime_error{"cannot create an event loop"};
  ipc_ = ZAL_IPC_Init(loop_);
  if (ipc_ == nullptr) {
    ZAL_EventLoop_Destroy(loop_);
    throw std::runtime_error{"cannot create the transport"};
  }
  const auto connected = [](ZAL_IpcClientContext client, void* self) noexcept {
    static_cast<Agent*>(self)->onConnect(client);
  };
  const auto ended = [](ZAL_IpcClientContext client, void* self) noexcept {
    static_cast<Agent*>(self)->onDisconnect(client);
  };
  const auto received = [](void* image, std::uint32_t size, void* self, void* source) noexcept {
    static_cast<Agent*>(self)->onImage(image, size, static_cast<ZAL_IpcClientContext>(source));
  };
  ZAL_IPC_AddClientConnectCallback(ipc_, connected, this);
  ZAL_IPC_AddClientDisconnectCallback(ipc_, ended, this);
  ZAL_IPC_AddMessageCallback(ipc_, received, this);
}

Agent::~Agent() {
  settle();
  // Once the loop stands still no client comes or goes. The closes wait in its queue until its destruction runs them.
  ZAL_EventLoop_Stop(loop_);
  closeSessions();
  ZAL_IPC_ServerShutdown(ipc_);
  ZAL_EventLoop_Destroy(loop_);
  ZAL_IPC_UnInit(ipc_);
}

void Agent::listen(const std::string& url) {
  const bool isKnown = url.rfind("file:///", 0) == 0 || url.rfind("tcp://", 0) == 0;
  if (!isKnown) throw std::runtime_error{"an address is file:///PATH or tcp://HOST:PORT, not " + url};
  if (ZAL_IPC_ServerCreate(ipc_, url.c_str()) == 0 || !hasListener(loop_)) {
    throw std::runtime_error{"cannot listen at " + url};
  }
  ZAL_EventLoop_Run(loop_);
  printer_.print(Tone::kPlain, "listening at " + printable(url));
}

void Agent::setConfiguration(std::string document) {
  const std::lock_guard hold{mutex_};
  configuration_ = std::move(document);
}

std::size_t Agent::sendConfiguration() {
  const std::lock_guard hold{mutex_};
  return broadcastLocked({ZAL_IPC_CMD_CONFIG, {}, {}, configuration_, 0});
}

std::size_t Agent::notify(const std::string& name, const std::string& service) {
  const std::lock_guard hold{mutex_};
  return broadcastLocked({ZAL_IPC_CMD_NOTIFY, service, name, configuration_, 0});
}

Answer Agent::call(const std::string& service, const std::string& name, const std::string& payload,
                   std::chrono::milliseconds timeout) {
  {
    const std::lock_guard hold{mutex_};
    Session* session = sessionForLocked(service, methodOf(name));
    if (session == nullptr) return {Outcome::kNotConnected, {}, {}};
    answer_.reset();
    awaited_ = openCallLocked(*session, service, name);
    sendLocked(*session, {ZAL_IPC_CMD_REQUEST, service, name, payload, *awaited_});
  }
  const auto isAnswered = [&] {
    const std::lock_guard hold{mutex_};
    return answer_.has_value();
  };
  static_cast<void>(waiter_.until(Clock::now() + timeout, isAnswered));

  const std::lock_guard hold{mutex_};
  awaited_.reset();
  if (answer_) return std::move(*answer_);
  return {waiter_.interrupted() ? Outcome::kInterrupted : Outcome::kNoReply, {}, timeout};
}

bool Agent::waitFor(const std::string& service, const std::string& method, std::chrono::milliseconds timeout) {
  return waiter_.until(Clock::now() + timeout, [&] {
    const std::lock_guard hold{mutex_};
    const Session* session = sessionForLocked(service, method);
    return session != nullptr && session->offers(service, method);
  });
}

std::size_t Agent::dropClients() {
  settle();
  return closeSessions();
}

std::size_t Agent::closeSessions() {
  const std::lock_guard hold{mutex_};
  std::size_t dropped = 0;
  for (Session& session : sessions_) {
    if (session.isClosing()) continue;
    session.setClosing();
    ZAL_IPC_CloseClient(session.context());
    ++dropped;
  }
  return dropped;
}

void Agent::settle() {
  {
    const std::lock_guard hold{mutex_};
    if (sessions_.empty()) return;
    // The loop starts one write a turn and sees its end in the next; a command queues one image for each client.
    constexpr int kSpareTurns = 4;
    turnsLeft_ = 2 * static_cast<int>(sessions_.size()) + kSpareTurns;
  }
  const auto countTurn = [](uv_timer_t* timer) noexcept {
    Agent& self = *static_cast<Agent*>(ZAL_EventLoop_GetTimerContext(timer));
    const std::lock_guard hold{self.mutex_};
    if (self.turnsLeft_ > 0 && --self.turnsLeft_ == 0) self.waiter_.notify();
  };
  uv_timer_t* timer = ZAL_EventLoop_StartTimer(loop_, countTurn, 1, 1, this);
  if (timer == nullptr) return;
  static_cast<void>(waiter_.until(Clock::now() + kSettleLimit, [&] {
    const std::lock_guard hold{mutex_};
    return turnsLeft_ == 0;
  }));
  ZAL_EventLoop_StopTimer(loop_, timer);
}

std::vector<std::string> Agent::describeClients() const {
  const std::lock_guard hold{mutex_};
  std::vector<std::string> texts;
  for (const Session& session : sessions_) {
    if (session.isClosing()) continue;
    texts.push_back(nameOf(session));
    for (const auto& [service, method] : session.subscriptions()) {
      texts.back() += "\n  " + printable(service) + ' ' + printable(method);
    }
  }
  return texts;
}

void Agent::onConnect(ZAL_IpcClientContext context) {
  std::string line;
  {
    const std::lock_guard hold{mutex_};
    sessions_.emplace_back(++lastSession_, context);
    line = nameOf(sessions_.back()) + " connected";
  }
  printer_.print(Tone::kNews, line);
}

void Agent::onDisconnect(ZAL_IpcClientContext context) {
  std::string line;
  bool isClosing = false;
  {
    const std::lock_guard hold{mutex_};
    Session& session = sessionLocked(context);
    isClosing = session.isClosing();
    line = nameOf(session) + " disconnected";
    if (awaited_ && session.hasOpen(*awaited_)) answer_ = Answer{Outcome::kDisconnected, {}, {}};
    sessions_.remove_if([&](const Session& other) { return &other == &session; });
  }
  printer_.print(Tone::kNews, line);
  waiter_.notify();
  // The end of the stream does not close this side of it.
  if (!isClosing) ZAL_IPC_CloseClient(context);
}

void Agent::onImage(const void* image, std::uint32_t size, ZAL_IpcClientContext context) {
  std::unique_lock hold{mutex_};
  Session& session = sessionLocked(context);
  hold.unlock();  // the session stays: this thread alone removes it

  const auto records = decode(image, size);
  if (!records) {
    printer_.print(Tone::kBad,
                   nameOf(session) + " sent an image of " + std::to_string(size) + " bytes without records");
  } else if (records->empty()) {
    onEmptyImage(session);
  } else {
    for (const Record& record : *records) onRecord(session, record);
  }
}

void Agent::onRecord(Session& session, const Record& record) {
  switch (record.code) {
    case ZAL_IPC_CMD_SUBSCRIBE:
      return onSubscribe(session, record);
    case ZAL_IPC_CMD_RESPONSE:
      return onReply(session, record);
    case ZAL_IPC_CMD_EVENT:
      return onEvent(session, record);
    case ZAL_IPC_CMD_GET_CONFIG:
      return onConfigurationRequest(session);
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      return onGatewayRequest(session, record);
    default:
      printer_.print(
          Tone::kBad,
          nameOf(session) + " sent a command of code " + std::to_string(record.code) + ": " + titleOf(record),
          payloadText(record.payload));
  }
}

void Agent::onSubscribe(Session& session, const Record& record) {
  {
    const std::lock_guard hold{mutex_};
    session.subscribe(record.service, record.name);
  }
  printer_.print(Tone::kNews, nameOf(session) + " subscribed " + titleOf(record));
  waiter_.notify();
}

void Agent::onReply(Session& session, const Record& record) {
  const char* what = record.requestId == kOwnRequestId ? " answered its own request " : " answered what nobody asked: ";
  {
    const std::lock_guard hold{mutex_};
    const auto call = session.close(record.requestId);
    if (call && deliverLocked(*call, Outcome::kAnswered, record.payload)) return;
    if (call) what = " answered after the time-out: ";
  }
  printer_.print(Tone::kNews,
                 nameOf(session) + what + titleOf(record) + " (id " + std::to_string(record.requestId) + ')',
                 payloadText(record.payload));
}

void Agent::onEmptyImage(Session& session) {
  std::string line = nameOf(session) + " sent an image without records";
  {
    const std::lock_guard hold{mutex_};
    const auto call = session.closeNameless();
    if (call && deliverLocked(*call, Outcome::kNoSuchMethod, {})) return;
    if (call) line += ": no such method " + printable(call->service) + ' ' + printable(call->name);
  }
  printer_.print(Tone::kNews, line);
}

void Agent::onEvent(Session& session, const Record& record) {
  printer_.print(Tone::kNews, nameOf(session) + " event " + titleOf(record), payloadText(record.payload));
}

void Agent::onConfigurationRequest(Session& session) {
  std::size_t size = 0;
  {
    const std::lock_guard hold{mutex_};
    size = configuration_.size();
    sendLocked(session, {ZAL_IPC_CMD_CONFIG, {}, {}, configuration_, 0});
  }
  printer_.print(Tone::kNews,
                 nameOf(session) + " asked for its configuration: sent " + std::to_string(size) + " bytes");
}

void Agent::onGatewayRequest(Session& session, const Record& record) {
  Record response{ZAL_IPC_CMD_GATEWAY_RESPONSE, record.service, record.name, record.payload, record.requestId};
  if (!response.payload.empty() && response.payload.back() == '\0') response.payload.pop_back();
  {
    const std::lock_guard hold{mutex_};
    sendLocked(session, response);
  }
  printer_.print(Tone::kNews,
                 nameOf(session) + " gateway request " + titleOf(record) + " (id " + std::to_string(record.requestId) +
                     "): answered with its own data",
                 payloadText(record.payload));
}

Session& Agent::sessionLocked(ZAL_IpcClientContext context) {
  return *std::find_if(sessions_.begin(), sessions_.end(), [&](const Session& s) { return s.context() == context; });
}

Session* Agent::sessionForLocked(const std::string& service, const std::string& method) {
  Session* newest = nullptr;
  for (auto session = sessions_.rbegin(); session != sessions_.rend(); ++session) {
    if (session->isClosing()) continue;
    if (session->offers(service, method)) return &*session;
    if (newest == nullptr) newest = &*session;
  }
  return newest;
}

std::uint16_t Agent::openCallLocked(Session& session, const std::string& service, const std::string& name) {
  const auto isOpen = [&](const Session& other) { return other.hasOpen(lastRequestId_); };
  do {
    ++lastRequestId_;
  } while (lastRequestId_ == 0 || lastRequestId_ == kOwnRequestId ||
           std::any_of(sessions_.begin(), sessions_.end(), isOpen));
  session.open({lastRequestId_, service, name, Clock::now()});
  return lastRequestId_;
}

bool Agent::deliverLocked(const OpenCall& call, Outcome outcome, const std::string& payload) {
  if (awaited_ != call.id) return false;
  answer_ = Answer{outcome, payload, Clock::now() - call.sentAt};
  waiter_.notify();
  return true;
}

bool Agent::sendLocked(const Session& session, const Record& record) {
  if (session.isClosing()) return false;
  Image image = encode(record);
  if (!image.bytes) return false;
  ZAL_IPC_ServerWrite(ipc_, session.context(), image.bytes.release(), image.size);
  return true;
}

std::size_t Agent::broadcastLocked(const Record& record) {
  return static_cast<std::size_t>(std::count_if(sessions_.begin(), sessions_.end(),
                                                [&](const Session& session) { return sendLocked(session, record); }));
}

}  // namespace zalctl
