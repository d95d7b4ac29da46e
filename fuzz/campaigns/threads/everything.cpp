#include "fuzz/campaigns/threads/everything.hpp"

#include <array>
#include <thread>

namespace zal::campaign {

HandlerWatch handlerWatch;

namespace {

std::atomic<int> turns = 0;

void give(ZAL_MessageHandle message) {
  ZAL_ObjectHandle data = ZAL_Object_Create();
  ZAL_Object_AddInt32(data, "value", turns.load());
  ZAL_Message_SetData(message, data);
}

ZAL_MessageHandle makeEvent() {
  ZAL_MessageHandle event = ZAL_Message_Create();
  ZAL_Message_SetName(event, "alarm");
  give(event);
  return event;
}

void destroy(ZAL_ObjectHandle object) {
  if (object != nullptr) ZAL_Object_Destroy(object);
}

void onAnswer(ZAL_ObjectHandle, void* client) {
  const HandlerWatch::Scope watched{handlerWatch};
  callSomething(static_cast<ZAL_ClientHandle>(client), ++turns);
}

void onEvent(void* client, unsigned) {
  const HandlerWatch::Scope watched{handlerWatch};
  callSomething(static_cast<ZAL_ClientHandle>(client), ++turns);
}

void onProfile(void* client, const char*) {
  onEvent(client, 0);
}

int echo(ZAL_MessageHandle, ZAL_MessageHandle response, void*) {
  const HandlerWatch::Scope watched{handlerWatch};
  give(response);
  return 0;
}

// One function of the library each, or one family.

void sendEvent(ZAL_ClientHandle client) {
  ZAL_Client_SendEvent(client, makeEvent());
}

void sendServiceEvent(ZAL_ClientHandle client) {
  ZAL_Service_SendEvent(client, ZAL_Client_GetService(client, "svc"), makeEvent());
}

void sendPrivate(ZAL_ClientHandle client) {
  ZAL_Client_SendPriv(client, "any", makeEvent());
}

void ask(ZAL_ClientHandle client) {
  static std::atomic<int> asked = 0;
  ZAL_ObjectHandle data = ZAL_Object_Create();
  // Each answer may call this again: every other one is dropped, so that they become fewer.
  ZAL_Client_Command_Request_Gateway(client, "other", "ask", data, ++asked % 2 == 0 ? onAnswer : nullptr, client);
  ZAL_Object_Destroy(data);
}

void askItself(ZAL_ClientHandle client) {
  ZAL_Client_Command_Request(client, "svc", "echo", "uid");
}

void subscribe(ZAL_ClientHandle client) {
  ZAL_Client_SubscribeServices(client);
}

void readConfiguration(ZAL_ClientHandle client) {
  destroy(ZAL_Client_GetConfiguration(client, ""));
  destroy(getServerConfig(client, "events"));
}

void readParameters(ZAL_ClientHandle client) {
  int32_t number = 0;
  double real = 0;
  uint8_t flag = 0;
  std::array<char, 16> text{};
  static_cast<void>(ZAL_Events_GetEnabled(client, "alarm"));
  static_cast<void>(ZAL_Events_GetParamNumber(client, "alarm", "limit", &number));
  static_cast<void>(ZAL_Events_GetParamDouble(client, "alarm", "level", &real));
  static_cast<void>(ZAL_Events_GetParamBool(client, "alarm", "enabled", &flag));
  static_cast<void>(ZAL_Events_GetParamString(client, "alarm", "unit", text.data(), text.size()));
  static_cast<void>(ZAL_Events_GetParamNumberFromArray(client, "alarm", "steps", &number, "at", 0));
  static_cast<void>(ZAL_Events_GetParamBoolFromArray(client, "alarm", "steps", &flag, "at", 0));
}

void writeConfiguration(ZAL_ClientHandle client) {
  const std::string document = R"({"events":{"settings":{"alarm":{"limit":4}}}})";
  static_cast<void>(updateServerConfig(client, document.data(), document.size()));
}

void changeMethods(ZAL_ClientHandle client) {
  ZAL_ServiceHandle service = ZAL_Client_GetService(client, "svc");
  ZAL_Service_AddMethod(service, "flicker", echo, nullptr);
  ZAL_Service_AddMethod(service, "flicker", nullptr, nullptr);
  ZAL_TelemetryService_AddDataset(ZAL_Client_GetService(client, "telemetry"), "flicker", nullptr);
}

void addService(ZAL_ClientHandle client) {
  static std::atomic<long> added = 0;
  const std::string name = "extra" + std::to_string(++added);  // a second of the same name would be nobody's
  ZAL_Client_AddService(client, ZAL_Service_Create(name.c_str()));
}

void writeLog(ZAL_ClientHandle client) {
  Log_PrintMessage(ZAL_LOG_INFO, "threads", 1, "writeLog", "client %p\n", static_cast<void*>(client));
}

constexpr std::array kCalls{sendEvent,          sendServiceEvent, sendPrivate,       ask,
                            askItself,          subscribe,        readConfiguration, readParameters,
                            writeConfiguration, changeMethods,    addService,        writeLog};

/// What handlers may do beyond what others may: a callback's lists are locked.
void addCallbacks(ZAL_ClientHandle client) {
  ZAL_Client_AddConnectCallback(client, onEvent, client);
  ZAL_Client_AddDisconnectCallback(client, onEvent, client);
  ZAL_Client_AddConfigurationChangeCallback(client, onProfile, client);
}

int some(ZAL_MessageHandle, ZAL_MessageHandle response, void* client) {
  const HandlerWatch::Scope watched{handlerWatch};
  callSomething(static_cast<ZAL_ClientHandle>(client), ++turns);
  give(response);
  return 0;
}

int all(ZAL_MessageHandle, ZAL_MessageHandle response, void* owner) {
  const HandlerWatch::Scope watched{handlerWatch};
  auto* const client = static_cast<ZAL_ClientHandle>(owner);
  for (const auto call : kCalls) call(client);
  addCallbacks(client);
  ZAL_Client_Destroy(client);  // both are refused
  ZAL_Destroy(client);
  static std::atomic<int> called = 0;
  if (++called % 50 == 0) ZAL_Client_Stop(client);
  if (called % 100 == 0) ZAL_Client_Start(client);  // may wait a second, for a connection that another thread has ended
  std::this_thread::sleep_for(std::chrono::milliseconds{called % 3});
  give(response);
  return 0;
}

}  // namespace

void callSomething(ZAL_ClientHandle client, int turn) {
  kCalls[static_cast<std::size_t>(turn) % kCalls.size()](client);
}

ZAL_ClientHandle makeTalkativeClient(const std::string& url) {
  ZAL_ClientOptions options{};
  url.copy(options.url, sizeof options.url - 1);
  options.interval = 1;
  ZAL_ClientHandle client = ZAL_Client_Create(&options);
  if (client == nullptr) throw Failure{"no client"};
  ZAL_ServiceHandle service = ZAL_Service_Create("svc");
  ZAL_Service_AddMethod(service, "echo", echo, client);
  ZAL_Service_AddMethod(service, "some", some, client);
  ZAL_Service_AddMethod(service, "all", all, client);
  ZAL_Client_AddService(client, service);
  ZAL_Client_AddService(client, ZAL_TelemetryService_Create());
  ZAL_Client_AddConnectCallback(client, onEvent, client);
  return client;
}

}  // namespace zal::campaign
