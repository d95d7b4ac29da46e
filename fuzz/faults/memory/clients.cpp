// The scenario of a client without an agent; the one of its life stands in support/life.cpp.
#include <array>
#include <atomic>
#include <cstring>

#include "memory/scenario.hpp"
#include "support/sanitizer.hpp"
#include "support/waiting.hpp"

namespace faults {

namespace {

using Client = Owned<ZAL_ClientHandle, ZAL_Client_Destroy>;

int answerNothing(ZAL_MessageHandle /*request*/, ZAL_MessageHandle /*response*/, void* /*userData*/) {
  return 0;
}
int answerDataset(ZAL_MessageHandle /*request*/, ZAL_MessageHandle /*response*/, ZAL_MessageHandle /*same*/) {
  return 0;
}

ZAL_ClientHandle createClient() {
  ZAL_ClientOptions options{};
  ZAL_Client_GetDefaultOptions(&options);
  return FAULTS_ATTEMPT(nullptr, ZAL_Client_Create(&options));
}

/// A service that no client has taken is its maker's; nothing frees it but a client.
void addServices(ZAL_ClientHandle client) {
  if (ZAL_ServiceHandle service = FAULTS_ATTEMPT(nullptr, ZAL_Service_Create("svc"))) {
    ZAL_Service_AddMethod(service, "get", answerNothing, nullptr);
    ZAL_Service_AddMethod(service, "get", nullptr, nullptr);
    ZAL_Client_AddService(client, service);
    FAULTS_REQUIRE(ZAL_Client_GetService(client, "svc/x") == service);
  }
  if (ZAL_ServiceHandle service = FAULTS_ATTEMPT(nullptr, ZAL_TelemetryService_Create())) {
    ZAL_TelemetryService_AddDataset(service, "set", answerDataset);
    ZAL_Client_AddService(client, service);
  }
}

void readSettings(ZAL_ClientHandle client) {
  constexpr char kText[] = R"({"events":{"settings":{"e":{"enabled":true,"n":1,"list":[{"n":1}]}}}})";
  const bool isStored = FAULTS_ATTEMPT(0, updateServerConfig(client, kText, sizeof kText - 1)) == 1;
  if (!isStored) return;
  if (const Object copy{FAULTS_ATTEMPT(nullptr, getServerConfig(client, "events"))})
    FAULTS_REQUIRE(cJSON_GetArraySize(ZAL_Object_GetInternal(copy.get())) == 1);
}

/// None of them has anything to do without a connection, which is what they say.
void useUnconnected(ZAL_ClientHandle client) {
  std::int32_t number = 0;
  double real = 0;
  std::uint8_t flag = 0;
  std::array<char, 8> text{};
  FAULTS_REQUIRE(ZAL_Client_GetConfiguration(client, nullptr) == nullptr);
  FAULTS_REQUIRE(ZAL_Events_GetEnabled(client, "e") == 0);
  FAULTS_REQUIRE(ZAL_Events_GetParamNumber(client, "e", "n", &number) == ZAL_CLIENT_NOT_AVAILABLE);
  FAULTS_REQUIRE(ZAL_Events_GetParamDouble(client, "e", "n", &real) == ZAL_CLIENT_NOT_AVAILABLE);
  FAULTS_REQUIRE(ZAL_Events_GetParamBool(client, "e", "n", &flag) == ZAL_CLIENT_NOT_AVAILABLE);
  FAULTS_REQUIRE(ZAL_Events_GetParamString(client, "e", "n", text.data(), text.size()) == ZAL_CLIENT_NOT_AVAILABLE);
  FAULTS_REQUIRE(ZAL_Events_GetParamNumberFromArray(client, "e", "list", &number, "n", 0) == ZAL_CLIENT_NOT_AVAILABLE);
  FAULTS_REQUIRE(ZAL_Events_GetParamBoolFromArray(client, "e", "list", &flag, "n", 0) == ZAL_CLIENT_NOT_AVAILABLE);
  ZAL_Client_SubscribeServices(client);
  ZAL_Client_SendEvent(client, FAULTS_ATTEMPT(nullptr, ZAL_Message_Create()));
  ZAL_Client_SendPriv(client, "svc", FAULTS_ATTEMPT(nullptr, ZAL_Message_Create()));
  if (ZAL_ServiceHandle service = ZAL_Client_GetService(client, "svc"))
    ZAL_Service_SendEvent(client, service, FAULTS_ATTEMPT(nullptr, ZAL_Message_Create()));
}

void runJobs(ZAL_ClientHandle client) {
  uv_work_t request{};
  request.data = client;
  connectProxyCallbackWork(&request);
  connectPortalCallbackWork(&request);
  disconnectProxyCallbackWork(&request);
  disconnectPortalCallbackWork(&request);
  profileChangedCallbackWork(nullptr);
  clientWork(nullptr);
  handleClientRequest(nullptr);
  handleGatewayResponse(nullptr);
  onMessage(nullptr, 0, nullptr, nullptr);
}

/// The short teardown leaves blocks behind, as it says, so it is done once.
void destroyShortly() {
  static bool isDone = false;
  if (isDone) return;
  const LeaksAllowed allowed;
  ZAL_ClientHandle const client = createClient();
  if (client == nullptr) return;
  ZAL_Destroy(client);
  isDone = true;
}

}  // namespace

void clients() {
  const Client client{createClient()};
  if (!client) return;
  const auto onEvent = [](void* count, unsigned /*flag*/) { ++*static_cast<int*>(count); };
  int events = 0;
  ZAL_Client_AddConnectCallback(client.get(), onEvent, &events);
  ZAL_Client_AddDisconnectCallback(client.get(), onEvent, &events);
  ZAL_Client_AddConfigurationChangeCallback(
      client.get(), [](void* /*userData*/, const char* /*service*/) {}, nullptr);
  addServices(client.get());
  readSettings(client.get());
  useUnconnected(client.get());
  runJobs(client.get());
  FAULTS_REQUIRE(events == 4 || strikeCount() > 0);
  ZAL_Client_Stop(client.get());
  destroyShortly();
}

}  // namespace faults
