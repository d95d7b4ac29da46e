#include "agent.hpp"

#include <uv.h>

#include <algorithm>
#include <memory>
#include <optional>
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

std::string idOf(const Record& record) {
  return " (id " + std::to_string(record.requestId) + ')';
}

News newsOf(const Session& session, const Record& record, const std::string& line, bool hasBody) {
  return {session.number(), kindOf(record), &record, Tone::kNews, nameOf(session) + line, hasBody};
}

}  // namespace

Agent::Agent(Waiter& waiter, NewsSink sink)
    : waiter_{waiter}, sink_{std::move(sink)}, loop_{ZAL_EventLoop_Create(0, "zalctl")} {
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
  stop();
  // Now that the loop stands still no client comes or goes. The closes wait in its queue until its destruction runs
  // them.
  for (const Delayed& waiting : delayed_) ZAL_EventLoop_StopTimer(loop_, waiting.timer);
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
}

void Agent::tell(const News& news) const {
  sink_(news);
  if (listener_) listener_(news);
}

void Agent::stop() {
  if (isStopped_) return;
  isStopped_ = true;
  settle();
  ZAL_EventLoop_Stop(loop_);
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

std::uint16_t Agent::request(const std::string& service, const std::string& name, const std::string& payload,
                             std::function<void(const Answer&)> done) {
  const std::lock_guard hold{mutex_};
  Session* session = sessionForLocked(service, methodOf(name));
  if (session == nullptr) return 0;
  const std::uint16_t id = nextIdLocked();
  if (id == 0) return 0;
  session->open({id, service, name, Clock::now(), std::move(done)});
  sendLocked(*session, {ZAL_IPC_CMD_REQUEST, service, name, payload, id});
  return id;
}

void Agent::abandon(std::uint16_t id) {
  const std::lock_guard hold{mutex_};
  for (Session& session : sessions_) session.abandon(id);
}

Answer Agent::call(const std::string& service, const std::string& name, const std::string& payload,
                   std::chrono::milliseconds timeout) {
  struct Result {
    std::mutex mutex;
    std::optional<Answer> answer;
  };
  // Shared, since an answer can be on its way to it when this stops waiting.
  const auto result = std::make_shared<Result>();
  const std::uint16_t id = request(service, name, payload, [this, result](const Answer& answer) {
    const std::lock_guard hold{result->mutex};
    result->answer = answer;
    waiter_.notify();
  });
  if (id == 0) return {Outcome::kNotConnected, {}, {}};
  const auto isAnswered = [&] {
    const std::lock_guard hold{result->mutex};
    return result->answer.has_value();
  };
  static_cast<void>(waiter_.until(Clock::now() + timeout, isAnswered));
  abandon(id);

  const std::lock_guard hold{result->mutex};
  if (result->answer) return std::move(*result->answer);
  return {waiter_.interrupted() ? Outcome::kInterrupted : Outcome::kNoReply, {}, timeout};
}

bool Agent::waitFor(const std::string& service, const std::string& method, std::chrono::milliseconds timeout) {
  return waiter_.until(Clock::now() + timeout, [&] {
    const std::lock_guard hold{mutex_};
    if (service.empty() && method.empty()) {
      return std::any_of(sessions_.begin(), sessions_.end(),
                         [](const Session& s) { return !s.subscriptions().empty(); });
    }
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

bool Agent::sendImage(unsigned client, std::string_view image) {
  const std::lock_guard hold{mutex_};
  const auto isIt = [&](const Session& session) { return session.number() == client && !session.isClosing(); };
  const auto found = std::find_if(sessions_.begin(), sessions_.end(), isIt);
  std::unique_ptr<void, CFree> copy{std::malloc(image.size())};
  if (found == sessions_.end() || !copy) return false;
  image.copy(static_cast<char*>(copy.get()), image.size());
  ZAL_IPC_ServerWrite(ipc_, found->context(), copy.release(), static_cast<std::uint32_t>(image.size()));
  return true;
}

std::vector<ClientInfo> Agent::clients() const {
  const std::lock_guard hold{mutex_};
  std::vector<ClientInfo> infos;
  for (const Session& session : sessions_) {
    if (!session.isClosing()) infos.push_back({session.number(), session.subscriptions()});
  }
  return infos;
}

void Agent::onConnect(ZAL_IpcClientContext context) {
  std::unique_lock hold{mutex_};
  const Session& session = sessions_.emplace_back(++lastSession_, context);
  hold.unlock();  // the session stays: this thread alone removes it
  tell({session.number(), kClientCame, nullptr, Tone::kNews, nameOf(session) + " connected"});
}

void Agent::onDisconnect(ZAL_IpcClientContext context) {
  std::list<Session> ended;
  {
    const std::lock_guard hold{mutex_};
    const Session& session = sessionLocked(context);
    const auto place =
        std::find_if(sessions_.begin(), sessions_.end(), [&](const Session& s) { return &s == &session; });
    ended.splice(ended.begin(), sessions_, place);
  }
  Session& session = ended.front();
  tell({session.number(), kClientGone, nullptr, Tone::kNews, nameOf(session) + " disconnected"});
  for (const OpenCall& call : session.closeAll()) {
    if (call.done) call.done({Outcome::kDisconnected, {}, Clock::now() - call.sentAt});
  }
  waiter_.notify();
  // The end of the stream does not close this side of it.
  if (!session.isClosing()) ZAL_IPC_CloseClient(context);
}

void Agent::onImage(const void* image, std::uint32_t size, ZAL_IpcClientContext context) {
  const auto records = decode(image, size);
  std::unique_lock hold{mutex_};
  Session& session = sessionLocked(context);
  // Whoever waits for a subscription meets all those of the image.
  for (const Record& record : records.value_or(std::vector<Record>{})) {
    if (record.code == ZAL_IPC_CMD_SUBSCRIBE) session.subscribe(record.service, record.name);
  }
  hold.unlock();  // the session stays: this thread alone removes it

  if (!records) {
    tell({session.number(), std::string{kMalformed}, nullptr, Tone::kBad,
          nameOf(session) + " sent an image of " + std::to_string(size) + " bytes without records"});
  } else if (records->empty()) {
    onEmptyImage(session);
  } else {
    for (const Record& record : *records) onRecord(session, record);
    waiter_.notify();
  }
}

void Agent::onRecord(Session& session, const Record& record) {
  switch (record.code) {
    case ZAL_IPC_CMD_SUBSCRIBE:
      return tell(newsOf(session, record, " subscribed " + titleOf(record), false));
    case ZAL_IPC_CMD_RESPONSE:
      return onReply(session, record);
    case ZAL_IPC_CMD_EVENT:
      return tell(newsOf(session, record, " event " + titleOf(record), true));
    case ZAL_IPC_CMD_GET_CONFIG:
      if (isSilent_) return tell(newsOf(session, record, " asked for its configuration", false));
      return onConfigurationRequest(session, record);
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      if (isSilent_) return tell(newsOf(session, record, " gateway request " + titleOf(record) + idOf(record), true));
      return onGatewayRequest(session, record);
    default:
      News news = newsOf(session, record,
                         " sent a command of code " + std::to_string(record.code) + ": " + titleOf(record), true);
      news.tone = Tone::kBad;
      tell(news);
  }
}

void Agent::onReply(Session& session, const Record& record) {
  std::unique_lock hold{mutex_};
  const auto call = session.close(record.requestId);
  hold.unlock();
  const bool isOwn = record.requestId == kOwnRequestId;
  const char* what = call    ? " answered after the time-out: "
                     : isOwn ? " answered its own request "
                             : " answered what nobody asked: ";
  News news = newsOf(session, record, what + titleOf(record) + idOf(record), true);
  if (call && call->done) news.line.clear();
  tell(news);
  if (call && call->done) call->done({Outcome::kAnswered, record.payload, Clock::now() - call->sentAt});
}

void Agent::onEmptyImage(Session& session) {
  std::unique_lock hold{mutex_};
  const auto call = session.closeNameless();
  hold.unlock();
  News news{session.number(), std::string{kEmpty}, nullptr, Tone::kNews,
            nameOf(session) + " sent an image without records"};
  if (!call) return tell(news);
  const Record asked{ZAL_IPC_CMD_REQUEST, call->service, call->name, {}, call->id};
  news.record = &asked;
  if (call->done) {
    news.line.clear();
  } else {
    news.line += ": no such method " + titleOf(asked);
  }
  tell(news);
  if (call->done) call->done({Outcome::kNoSuchMethod, {}, Clock::now() - call->sentAt});
}

void Agent::onConfigurationRequest(Session& session, const Record& record) {
  std::size_t size = 0;
  {
    const std::lock_guard hold{mutex_};
    size = configuration_.size();
    sendLocked(session, {ZAL_IPC_CMD_CONFIG, {}, {}, configuration_, 0});
  }
  tell(newsOf(session, record, " asked for its configuration: sent " + std::to_string(size) + " bytes", false));
}

void Agent::onGatewayRequest(Session& session, const Record& record) {
  const std::size_t number = answers_.find(record);
  Record answer{ZAL_IPC_CMD_GATEWAY_RESPONSE, record.service, record.name, record.payload, record.requestId};
  if (!answer.payload.empty() && answer.payload.back() == '\0') answer.payload.pop_back();
  std::string how = "answered with its own data";
  std::chrono::milliseconds delay{};
  if (number != 0) {
    const AnswerRule& rule = answers_.rule(number);
    answer.payload = rule.answer;
    delay = rule.delay;
    how = (rule.answer.empty() ? "dropped by rule " : "answered by rule ") + std::to_string(number);
  }
  if (delay.count() != 0) {
    sendLater(session.number(), answer, delay);
  } else if (number == 0 || !answer.payload.empty()) {
    const std::lock_guard hold{mutex_};
    sendLocked(session, answer);
  }
  tell(newsOf(session, record, " gateway request " + titleOf(record) + idOf(record) + ": " + how, true));
}

void Agent::sendLater(unsigned client, const Record& answer, std::chrono::milliseconds delay) {
  const auto send = [](uv_timer_t* timer) noexcept {
    const Delayed& due = *static_cast<Delayed*>(ZAL_EventLoop_GetTimerContext(timer));
    Agent& self = due.agent;
    ZAL_EventLoop_StopTimer(self.loop_, timer);
    const std::lock_guard hold{self.mutex_};
    for (const Session& session : self.sessions_) {
      if (session.number() == due.client) self.sendLocked(session, due.answer);
    }
    self.delayed_.remove_if([&](const Delayed& other) { return &other == &due; });
  };
  Delayed& waiting = delayed_.emplace_back(Delayed{*this, client, answer, nullptr});
  waiting.timer = ZAL_EventLoop_StartTimer(loop_, send, static_cast<std::uint64_t>(delay.count()), 0, &waiting);
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

std::uint16_t Agent::nextIdLocked() {
  const auto isOpen = [&](const Session& other) { return other.hasOpen(lastRequestId_); };
  for (unsigned tries = 0; tries <= kOwnRequestId; ++tries) {
    ++lastRequestId_;
    if (lastRequestId_ == 0 || lastRequestId_ == kOwnRequestId) continue;
    if (std::none_of(sessions_.begin(), sessions_.end(), isOpen)) return lastRequestId_;
  }
  return 0;
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
