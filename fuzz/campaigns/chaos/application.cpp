#include "fuzz/campaigns/chaos/application.hpp"

#include <chrono>
#include <utility>

#include "fuzz/campaigns/chaos/ledger.hpp"
#include "fuzz/campaigns/support/endpoint.hpp"

namespace zal::campaign {

namespace {

constexpr std::chrono::milliseconds kPause{1};
constexpr std::chrono::milliseconds kSlowness{2};

int32_t idOf(ZAL_MessageHandle request) {
  int32_t id = -1;
  ZAL_ObjectHandle data = ZAL_Message_GetData(request);
  if (data != nullptr) ZAL_Object_GetInt32(data, "id", &id);
  return id;
}

void give(ZAL_MessageHandle message, const char* key, int32_t value) {
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, key, value);
  ZAL_Message_SetData(message, data);
}

/// The telemetry interface has no user data.
RunCounter* probes = nullptr;

}  // namespace

int RunCounter::check() {
  int found = -1;
  for (std::size_t id = 0; id < runs_.size(); ++id)
    if (runs_[id].exchange(0) > 1 && id != kOwnRequestId) found = static_cast<int>(id);
  return found;
}

Application::Application(const std::string& url) {
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  url.copy(options.url, sizeof options.url - 1);
  options.url[url.size()] = '\0';
  options.interval = kIntervalMs;
  client_ = ZAL_Client_Create(&options);
  service_ = ZAL_Service_Create("svc");
  if (client_ == nullptr || service_ == nullptr) throw Failure{"no client"};

  ZAL_Service_AddMethod(service_, "echo", echo, this);
  ZAL_Service_AddMethod(service_, "slow", echoSlowly, this);
  ZAL_Service_AddMethod(service_, "talk", echoAndTalk, this);
  ZAL_Service_AddMethod(service_, "hollow", nullptr, nullptr);
  ZAL_Client_AddService(client_, service_);
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  ZAL_TelemetryService_AddDataset(telemetry, "probe", probe);
  ZAL_Client_AddService(client_, telemetry);
  probes = &runs_;

  const auto onEvent = [](void*, unsigned) {};
  ZAL_Client_AddConnectCallback(client_, onEvent, this);
  ZAL_Client_AddDisconnectCallback(client_, onEvent, this);
  ZAL_Client_AddConfigurationChangeCallback(
      client_, [](void*, const char*) {}, this);
  ZAL_Client_Start(client_);

  for (int sender = 0; sender < kSenders; ++sender)
    every([this, sender](int turn) { sendEvent(sender == 0 ? "svc" : nullptr, sender, turn); });
  every([this](int) { ask(); });
  every([this](int turn) { read(turn); });
}

Application::~Application() {
  resume();
  {
    const std::lock_guard hold{mutex_};
    isOver_ = true;
  }
  for (std::thread& thread : threads_) thread.join();
  ZAL_Client_Destroy(client_);
}

// The methods. Worker threads.

int Application::echo(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self) {
  const int32_t id = idOf(request);
  give(response, "id", id);
  if (id >= 0) static_cast<Application*>(self)->runs_.count(id);
  return 0;
}

int Application::echoSlowly(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self) {
  std::this_thread::sleep_for(kSlowness);
  return echo(request, response, self);
}

int Application::echoAndTalk(ZAL_MessageHandle request, ZAL_MessageHandle response, void* self) {
  auto& application = *static_cast<Application*>(self);
  application.sendEvent(nullptr, -1, 0);
  ++application.ownRequests_;
  ZAL_Client_Command_Request(application.client_, "svc", "echo", "uid");
  return echo(request, response, self);
}

int Application::probe(ZAL_MessageHandle request, ZAL_MessageHandle response, ZAL_MessageHandle) {
  const int32_t id = idOf(request);
  ZAL_ObjectHandle data = ZAL_TelemetryObject_Create(response);
  ZAL_Object_AddInt32(data, "other", 1);
  ZAL_Object_AddInt32(data, "id", id);
  ZAL_Message_SetData(response, data);
  if (id >= 0) probes->count(id);
  return 0;
}

// What the threads do.

void Application::every(std::function<void(int turn)> act) {
  threads_.emplace_back([this, act = std::move(act)] {
    for (int turn = 0;; ++turn) {
      {
        std::unique_lock hold{mutex_};
        ++resting_;
        changed_.notify_all();
        changed_.wait(hold, [&] { return !isPaused_; });
        --resting_;
        if (isOver_) return;
      }
      act(turn);
      std::this_thread::sleep_for(kPause);
    }
  });
}

void Application::pause() {
  std::unique_lock hold{mutex_};
  isPaused_ = true;
  changed_.wait(hold, [&] { return resting_ == static_cast<int>(threads_.size()); });
}

void Application::resume() {
  const std::lock_guard hold{mutex_};
  isPaused_ = false;
  changed_.notify_all();
}

void Application::sendEvent(const char* service, int sender, int number) {
  ZAL_MessageHandle event = ZAL_Message_Create();
  ZAL_Message_SetName(event, std::to_string(sender).c_str());
  give(event, "number", number);
  if (service == nullptr)
    ZAL_Client_SendEvent(client_, event);
  else
    ZAL_Service_SendEvent(client_, service_, event);
}

void Application::ask() {
  const long number = questions_++;
  Question& question = table_[static_cast<std::size_t>(number) % table_.size()];
  if (question.isOpen) throw Failure{"too many questions are open"};
  question.application = this;
  question.number = number;
  question.isOpen = true;
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, "question", static_cast<int32_t>(number));
  ZAL_Client_Command_Request_Gateway(client_, "other", "ask", data, onAnswer, &question);
  ZAL_Object_Destroy(data);
}

void Application::onAnswer(ZAL_ObjectHandle response, void* asked) {
  auto& question = *static_cast<Question*>(asked);
  int32_t answer = -1;  // of a request that did not reach the agent, which answers it all the same
  if (response != nullptr) ZAL_Object_GetInt32(response, "answer", &answer);
  if (!question.isOpen.exchange(false) || (answer != -1 && answer != question.number))
    question.application->isFaulty_ = true;
  ++question.application->answeredQuestions_;
}

void Application::read(int turn) {
  int32_t number = 0;
  char text[16];
  static_cast<void>(ZAL_Events_GetEnabled(client_, "alarm"));
  static_cast<void>(ZAL_Events_GetParamNumber(client_, "alarm", "limit", &number));
  static_cast<void>(ZAL_Events_GetParamString(client_, "alarm", "unit", text, sizeof text));
  if (ZAL_ObjectHandle all = ZAL_Client_GetConfiguration(client_, "")) ZAL_Object_Destroy(all);
  ZAL_Service_AddMethod(service_, "flicker", turn % 2 == 0 ? echo : nullptr, this);
}

void Application::check() {
  if (const int id = runs_.check(); id >= 0) throw Failure{"the method ran twice for request " + std::to_string(id)};
  if (isFaulty_) throw Failure{"a gateway callback was called twice, or with the answer of another request"};
}

}  // namespace zal::campaign
