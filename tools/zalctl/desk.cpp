#include "desk.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

#include "report.hpp"

namespace zalctl {
namespace {

void tell(const std::weak_ptr<Visitor>& visitor, Record record, const cJSON& payload) {
  const auto present = visitor.lock();
  if (!present) return;
  record.payload = jsonLine(payload);
  present->receive(record);
}

JsonPtr refusal(const std::string& why) {
  JsonPtr answer = newObject();
  add(*answer, "error", why);
  return answer;
}

Record answerTo(const Record& request) {
  return {ZAL_IPC_CMD_RESPONSE, request.service, request.name, {}, request.requestId};
}

}  // namespace

/// A call whose answer somebody waits for.
struct Desk::Waiting {
  Desk& desk;
  Record request;
  std::weak_ptr<Visitor> visitor;
  CallResult result;
  std::chrono::milliseconds timeout;
  std::uint16_t id = 0;
  uv_timer_t* timer = nullptr;
};

struct Desk::Command {
  std::string_view name;
  JsonPtr (Desk::*run)(const Inquiry& inquiry);
};

const Desk::Command Desk::kTable[] = {
    {"call", &Desk::call}, {"list", &Desk::list}, {"config", &Desk::config}, {"listen", &Desk::listen}};

Desk::Desk(Agent& agent) : agent_{agent} {
  agent_.setListener([this](const News& news) { publish(news); });
}

Desk::~Desk() {
  agent_.stop();
  agent_.setListener({});
  for (const auto& waiting : calls_) {
    agent_.abandon(waiting->id);
    ZAL_EventLoop_StopTimer(agent_.loop(), waiting->timer);
  }
}

void Desk::serve(const Record& request, const std::shared_ptr<Visitor>& visitor) {
  const JsonPtr arguments = parsePayload(request.payload);
  const bool isRequest = request.code == ZAL_IPC_CMD_REQUEST && request.service == kDesk && arguments;
  const auto* command =
      std::find_if(std::begin(kTable), std::end(kTable), [&](const Command& c) { return c.name == request.name; });
  const bool isKnown = isRequest && command != std::end(kTable);
  const JsonPtr answer =
      isKnown ? (this->*command->run)({request, *arguments, visitor}) : refusal("unknown request " + request.name);
  if (answer) tell(visitor, answerTo(request), *answer);
}

JsonPtr Desk::list(const Inquiry& /*inquiry*/) {
  JsonPtr clients{cJSON_CreateArray()};
  for (const ClientInfo& client : agent_.clients()) cJSON_AddItemToArray(clients.get(), toJson(client).release());
  JsonPtr answer = newObject();
  add(*answer, "clients", std::move(clients));
  return answer;
}

JsonPtr Desk::config(const Inquiry& inquiry) {
  std::string document = textIn(inquiry.arguments, "document");
  if (!parsePayload(document)) return refusal("the document is no JSON");
  agent_.setConfiguration(std::move(document));
  JsonPtr answer = newObject();
  add(*answer, "clients", static_cast<double>(agent_.sendConfiguration()));
  return answer;
}

JsonPtr Desk::listen(const Inquiry& inquiry) {
  listeners_.push_back(inquiry.visitor);
  return newObject();
}

JsonPtr Desk::call(const Inquiry& inquiry) {
  constexpr std::size_t kMaxCalls = 1024;
  if (calls_.size() == kMaxCalls) return refusal("too many calls at once");
  constexpr double kDay = 24 * 3600 * 1000.0;
  const auto timeout = static_cast<std::uint32_t>(std::clamp(numberIn(inquiry.arguments, "timeout"), 0.0, kDay));
  const std::string service = textIn(inquiry.arguments, "service").substr(0, kMaxName);
  const std::string name = textIn(inquiry.arguments, "name").substr(0, kMaxName);
  Waiting& waiting = *calls_.emplace_back(std::make_unique<Waiting>(
      Waiting{*this, inquiry.request, inquiry.visitor, {service, name, {}}, std::chrono::milliseconds{timeout}}));

  const auto done = [this, &waiting](const Answer& answer) { end(waiting, answer); };
  waiting.id = agent_.request(service, name, textIn(inquiry.arguments, "payload"), done);
  if (waiting.id == 0) {
    end(waiting, {Outcome::kNotConnected, {}, {}});
    return nullptr;
  }
  const auto expired = [](uv_timer_t* timer) noexcept {
    auto& late = *static_cast<Waiting*>(ZAL_EventLoop_GetTimerContext(timer));
    late.desk.agent_.abandon(late.id);
    late.desk.end(late, {Outcome::kNoReply, {}, late.timeout});
  };
  waiting.timer = ZAL_EventLoop_StartTimer(agent_.loop(), expired, timeout, 0, &waiting);
  return nullptr;
}

void Desk::end(Waiting& waiting, const Answer& answer) {
  if (waiting.timer != nullptr) ZAL_EventLoop_StopTimer(agent_.loop(), waiting.timer);
  waiting.result.answer = answer;
  tell(waiting.visitor, answerTo(waiting.request), *toJson(waiting.result));
  calls_.remove_if([&](const auto& other) { return other.get() == &waiting; });
}

void Desk::publish(const News& news) {
  const auto isGone = [](const std::weak_ptr<Visitor>& visitor) { return visitor.expired(); };
  listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), isGone), listeners_.end());
  if (listeners_.empty()) return;
  const JsonPtr json = toJson(news);
  const auto listeners = listeners_;  // one that is cut off leaves the list
  for (const auto& listener : listeners) tell(listener, {ZAL_IPC_CMD_EVENT, kDesk, "news", {}, 0}, *json);
}

JsonPtr toJson(const ClientInfo& client) {
  JsonPtr object = newObject();
  JsonPtr subscriptions{cJSON_CreateArray()};
  for (const auto& [service, method] : client.subscriptions) {
    JsonPtr subscription = newObject();
    add(*subscription, "service", service);
    add(*subscription, "method", method);
    cJSON_AddItemToArray(subscriptions.get(), subscription.release());
  }
  add(*object, "client", client.number);
  add(*object, "subscriptions", std::move(subscriptions));
  return object;
}

}  // namespace zalctl
