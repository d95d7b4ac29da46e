#include "support/life.hpp"

#include <unistd.h>

#include <array>
#include <atomic>
#include <utility>

#include "memory/scenario.hpp"
#include "support/waiting.hpp"

namespace faults {

namespace {

std::string unixDomainUrl;
std::string tcpUrl;

/// What the callbacks of the application saw.
struct Seen {
  std::atomic<int> answered{0};  // requests that the agent says it has the answer of, on the newest connection
  std::atomic<int> connects{0};
  std::atomic<int> disconnects{0};
  std::atomic<int> profiles{0};
  std::atomic<int> gatewayAnswers{0};
  std::atomic<int> datasets{0};

  static Seen& of(void* userData) noexcept { return *static_cast<Seen*>(userData); }
};

Seen* seenByDatasets = nullptr;  // a dataset's callback gets no user data

int answerGet(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData) {
  std::int32_t answered = 0;
  if (ZAL_ObjectHandle data = ZAL_Message_GetData(request))
    if (ZAL_Object_GetInt32(data, "answered", &answered) == 1) Seen::of(userData).answered = answered;
  if (ZAL_ObjectHandle answer = ZAL_Object_Create()) {
    ZAL_Object_AddInt32(answer, "value", 1);
    ZAL_Message_SetData(response, answer);
  }
  return 0;
}

int answerDataset(ZAL_MessageHandle /*request*/, ZAL_MessageHandle response, ZAL_MessageHandle /*same*/) {
  ++seenByDatasets->datasets;
  if (ZAL_ObjectHandle answer = ZAL_TelemetryObject_Create(response)) {
    ZAL_Object_AddInt32(answer, "value", 1);
    ZAL_Message_SetData(response, answer);
  }
  return 0;
}

/// What an application does that means to have its services, whatever failed before.
void addServices(ZAL_ClientHandle client, Seen& seen) {
  if (ZAL_Client_GetService(client, "svc") == nullptr)
    ZAL_Client_AddService(client, FAULTS_ATTEMPT(nullptr, ZAL_Service_Create("svc")));
  ZAL_Service_AddMethod(ZAL_Client_GetService(client, "svc"), "get", answerGet, &seen);
  if (ZAL_Client_GetService(client, "telemetry") == nullptr)
    ZAL_Client_AddService(client, FAULTS_ATTEMPT(nullptr, ZAL_TelemetryService_Create()));
  ZAL_TelemetryService_AddDataset(ZAL_Client_GetService(client, "telemetry"), "cpu", answerDataset);
}

void addCallbacks(ZAL_ClientHandle client, Seen& seen) {
  ZAL_Client_AddConnectCallback(
      client, [](void* self, unsigned /*flag*/) { ++Seen::of(self).connects; }, &seen);
  ZAL_Client_AddDisconnectCallback(
      client, [](void* self, unsigned /*flag*/) { ++Seen::of(self).disconnects; }, &seen);
  ZAL_Client_AddConfigurationChangeCallback(
      client, [](void* self, const char* /*service*/) { ++Seen::of(self).profiles; }, &seen);
}

void readConfiguration(ZAL_ClientHandle client) {
  std::int32_t number = 0;
  double real = 0;
  std::uint8_t flag = 0;
  std::array<char, 8> text{};
  const bool isRead = ZAL_Events_GetEnabled(client, "e") == 1 &&
                      ZAL_Events_GetParamNumber(client, "e", "n", &number) == ZAL_CLIENT_OK &&
                      ZAL_Events_GetParamDouble(client, "e", "d", &real) == ZAL_CLIENT_OK &&
                      ZAL_Events_GetParamBool(client, "e", "b", &flag) == ZAL_CLIENT_OK &&
                      ZAL_Events_GetParamString(client, "e", "t", text.data(), text.size()) == ZAL_CLIENT_OK &&
                      ZAL_Events_GetParamNumberFromArray(client, "e", "list", &number, "n", 0) == ZAL_CLIENT_OK &&
                      ZAL_Events_GetParamBoolFromArray(client, "e", "list", &flag, "b", 0) == ZAL_CLIENT_OK;
  FAULTS_REQUIRE(isRead || strikeCount() > 0);
  const Object copy{ZAL_Client_GetConfiguration(client, nullptr)};
  FAULTS_REQUIRE(copy || strikeCount() > 0);
}

ZAL_MessageHandle makeEvent() {
  ZAL_MessageHandle const event = FAULTS_ATTEMPT(nullptr, ZAL_Message_Create());
  ZAL_Message_SetName(event, "event");
  return event;
}

void sendAll(ZAL_ClientHandle client, Seen& seen) {
  ZAL_Client_SendEvent(client, makeEvent());
  ZAL_Client_SendPriv(client, "svc", makeEvent());
  ZAL_Service_SendEvent(client, ZAL_Client_GetService(client, "svc"), makeEvent());
  ZAL_Client_Command_Request(client, "telemetry", "cpu/load", nullptr);
  if (const Object data{FAULTS_ATTEMPT(nullptr, ZAL_Object_Create())})
    ZAL_Client_Command_Request_Gateway(
        client, "other", "name", data.get(),
        [](ZAL_ObjectHandle /*response*/, void* self) { ++Seen::of(self).gatewayAnswers; }, &seen);
}

/// The fault ends, and the client goes on: it answers requests that come from now on.
void recover(ZAL_ClientHandle client, Seen& seen) {
  disarm();
  addServices(client, seen);
  ZAL_Client_Start(client);  // for the application to try again; a started client takes no notice
  // The count begins anew with each connection: a request that tells of an answer, after one has come, is enough.
  seen.answered = 0;
  require(waitUntil([&] { return seen.answered > 0; }), "the client answers again");
}

/// Other files of the program: with them, the client's sockets have numbers beyond what libuv provides for at first.
class OpenFiles {
 public:
  OpenFiles() {
    for (int& file : files_) file = dup(STDIN_FILENO);
  }
  ~OpenFiles() {
    for (const int file : files_) close(file);
  }
  OpenFiles(const OpenFiles&) = delete;
  OpenFiles& operator=(const OpenFiles&) = delete;

 private:
  std::array<int, 100> files_{};
};

void serve(ZAL_ClientHandle client, Seen& seen) {
  ZAL_Client_Start(client);
  FAULTS_REQUIRE(waitUnlessStruck([&] { return seen.answered > 2 && seen.connects > 0 && seen.profiles > 0; }) ||
                 strikeCount() > 0);
  readConfiguration(client);
  sendAll(client, seen);
  FAULTS_REQUIRE(waitUnlessStruck([&] { return seen.gatewayAnswers > 0 && seen.datasets > 0; }) || strikeCount() > 0);
  if (strikeCount() > 0) recover(client, seen);
}

void liveWithAgent(const std::string& url) {
  Seen seen;
  seenByDatasets = &seen;
  ZAL_ClientOptions options{};
  ZAL_Client_GetDefaultOptions(&options);
  zalstrlcpy(options.url, url.c_str(), sizeof options.url);
  options.interval = 1;
  const Owned<ZAL_ClientHandle, ZAL_Client_Destroy> client{FAULTS_ATTEMPT(nullptr, ZAL_Client_Create(&options))};
  if (!client) return;
  const OpenFiles files;
  addServices(client.get(), seen);
  addCallbacks(client.get(), seen);
  serve(client.get(), seen);
  ZAL_Client_Stop(client.get());
  seen.answered = 0;
  serve(client.get(), seen);
}

}  // namespace

void setAgentUrls(std::string unixDomain, std::string tcp) {
  unixDomainUrl = std::move(unixDomain);
  tcpUrl = std::move(tcp);
}

void liveOverUnixDomain() {
  liveWithAgent(unixDomainUrl);
}

void liveOverTcp() {
  liveWithAgent(tcpUrl);
}

}  // namespace faults
