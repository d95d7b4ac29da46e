// Any bytes as an image from the agent, against a client with services of all kinds: from onMessage over the jobs and
// the handlers to the image that goes back. The loop and the socket are left out: jobs run in this thread, in the order
// in which they are queued, and what the client writes is read here.
#include <zal/zal_client.h>
#include <zal/zal_eventloop.h>
#include <zal/zal_ipc.h>
#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/zal_client/client.hpp"
#include "support/fuzz.hpp"
#include "support/json.hpp"
#include "support/memory.hpp"
#include "support/uri.hpp"

namespace {

struct Job {
  uv_work_cb callback;
  void* data;
};

std::deque<Job> jobs;
std::vector<std::string> written;

void runJobs() {
  for (; !jobs.empty(); jobs.pop_front()) {
    uv_work_t request{};
    request.data = jobs.front().data;
    jobs.front().callback(&request);
  }
}

}  // namespace

// The linker has the library call these two instead of its own.

extern "C" int __wrap_ZAL_EventLoop_Work(ZAL_EventLoopContext /*loop*/, uv_work_cb callback, void* data) {
  jobs.push_back({callback, data});
  return 0;
}

/// zal::ipc::writeOn, by the name that the linker knows.
extern "C" bool __wrap__ZN3zal3ipc7writeOnEjR14ZAL_IpcHandle_St10unique_ptrIvNS_5CFreeEEj(std::uint32_t /*connection*/,
                                                                                          ZAL_IpcHandle_& /*ipc*/,
                                                                                          zal::CPtr<void> image,
                                                                                          std::uint32_t size) noexcept {
  written.emplace_back(static_cast<const char*>(image.get()), size);
  return true;
}

namespace {

using zal::CommandListPtr;
using zal::CommandPtr;

// What the services do with a request: each way in which an answer can be made.

int echo(ZAL_MessageHandle request, ZAL_MessageHandle response, void* /*userData*/) {
  const cJSON* const data = ZAL_Object_GetInternal(ZAL_Message_GetData(request));
  ZAL_Message_SetName(response, ZAL_Message_GetName(request));
  ZAL_Message_SetData(response, ZAL_Object_CreateFromcJSON(cJSON_Duplicate(data, 1)));
  return 0;
}

int payload(ZAL_MessageHandle request, ZAL_MessageHandle response, void* /*userData*/) {
  std::uint8_t* bytes = nullptr;
  std::uint32_t size = 0;
  ZAL_Message_GetPayload(request, &bytes, &size);
  ZAL_Message_SetVersion(response, 2);
  ZAL_Message_SetPayload(response, bytes, size);
  return 0;
}

int refuse(ZAL_MessageHandle request, ZAL_MessageHandle response, void* /*userData*/) {
  ZAL_Message_SetError(response, 7, ZAL_Message_GetOptionalParam(request), ZAL_Message_GetName(request));
  return -1;
}

/// A handler in C++ that fails in its own way.
int throwAway(ZAL_MessageHandle /*request*/, ZAL_MessageHandle /*response*/, void* /*userData*/) {
  throw std::runtime_error{"thrown"};
}

/// A dataset, all of which is added: the filter of the request takes its part.
int tell(ZAL_MessageHandle /*request*/, ZAL_MessageHandle response, ZAL_MessageHandle sameResponse) {
  FUZZ_CHECK(response == sameResponse);
  ZAL_ObjectHandle top = ZAL_TelemetryObject_Create(response);
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(ZAL_Object_AddObject(top, "system"), "cpu");
  ZAL_Object_AddDouble(cpu, "load", 0.5);
  ZAL_Object_AddString(cpu, "name", "core");
  ZAL_ObjectHandle ports = ZAL_Object_AddArray(top, "ports");
  for (int i = 0; i < 5; ++i) ZAL_Object_AddInt32(ZAL_Array_AddObject(ports), "number", i);
  ZAL_Object_AddJson(top, "json", cJSON_Parse(R"({"a":[1,{"b":"c"},[]],"empty":{}})"));
  ZAL_Message_SetData(response, top);
  return 0;
}

int ignoreReport(const char* /*format*/, ...) {
  return 0;
}

/// A client that is connected as far as it knows.
ZAL_ClientHandle makeClient() {
  setenv("UV_THREADPOOL_SIZE", "1", 1);  // a worker then does not linger for the next request
  ZAL_ClientOptions options;
  ZAL_Client_GetDefaultOptions(&options);
  ZAL_ClientHandle client = ZAL_Client_Create(&options);
  ZAL_ServiceHandle service = ZAL_Service_Create("svc");
  ZAL_Service_AddMethod(service, "echo", echo, nullptr);
  ZAL_Service_AddMethod(service, "payload", payload, nullptr);
  ZAL_Service_AddMethod(service, "refuse", refuse, nullptr);
  ZAL_Service_AddMethod(service, "throw", throwAway, nullptr);
  ZAL_Client_AddService(client, service);
  ZAL_ServiceHandle telemetry = ZAL_TelemetryService_Create();
  ZAL_TelemetryService_AddDataset(telemetry, "device", tell);
  ZAL_Client_AddService(client, telemetry);
  ZAL_Client_AddConnectCallback(
      client, [](void*, unsigned) {}, nullptr);
  ZAL_Client_AddDisconnectCallback(
      client, [](void*, unsigned) {}, nullptr);
  ZAL_Client_AddConfigurationChangeCallback(
      client, [](void*, const char*) {}, nullptr);
  client->flags.fetch_or(zal::kConnected);
  tpl_hook.report_fn = ignoreReport;
  return client;
}

/// The requests of an image that must be answered, each once, in the order of the image.
std::vector<CommandPtr> requestsIn(const std::uint8_t* image, std::size_t size) {
  std::vector<CommandPtr> requests;
  const CommandListPtr list{ZAL_IpcCommand_Decode(image, static_cast<std::uint32_t>(size))};
  while (CommandPtr command{ZAL_IpcCommand_Remove(list.get())})
    if (command->code == ZAL_IPC_CMD_REQUEST && zal::UriPtr{ZAL_UriParser_Create(command->name)})
      requests.push_back(std::move(command));
  return requests;
}

/// An answer goes to whom the request came from, and holds a document; one without records is for an unknown method.
void checkAnswer(const std::string& image, const ZAL_IpcCommand& request) {
  const CommandListPtr list{ZAL_IpcCommand_Decode(image.data(), static_cast<std::uint32_t>(image.size()))};
  FUZZ_CHECK(list != nullptr);
  const CommandPtr answer{ZAL_IpcCommand_Remove(list.get())};
  if (!answer) return;
  FUZZ_CHECK(answer->code == ZAL_IPC_CMD_RESPONSE);
  FUZZ_CHECK(std::strcmp(answer->service, request.service) == 0);
  FUZZ_CHECK(std::strcmp(answer->name, request.name) == 0);
  FUZZ_CHECK(answer->requestId == request.requestId);
  FUZZ_CHECK(zal::fuzz::parsed({static_cast<const char*>(answer->payload), answer->payloadSize}) != nullptr);
  FUZZ_CHECK(!CommandPtr{ZAL_IpcCommand_Remove(list.get())});
}

bool isAnswer(const std::string& image) {
  const CommandListPtr list{ZAL_IpcCommand_Decode(image.data(), static_cast<std::uint32_t>(image.size()))};
  const CommandPtr first{ZAL_IpcCommand_Remove(list.get())};
  return !first || first->code == ZAL_IPC_CMD_RESPONSE;
}

/// Makes the client as it was before the last input, with a gateway request that waits for the answer of a known id.
void reset(ZAL_ClientHandle_& client) {
  constexpr std::uint16_t kRequestId = 7;
  written.clear();
  client.configPending.store(1);
  if (client.pendingRequests.find(kRequestId) == nullptr) {
    std::unique_ptr<zal::PendingRequest> request{new zal::PendingRequest{}};
    request->requestId = kRequestId;
    request->callback = [](ZAL_ObjectHandle, void*) {};
    client.pendingRequests.push(std::move(request));
  }
  const zal::LockGuard hold{client.configMutex};
  client.config.reset();
}

void readConfiguration(ZAL_ClientHandle client) {
  std::int32_t number = 0;
  char text[16];
  ZAL_Events_GetEnabled(client, "event");
  ZAL_Events_GetParamNumber(client, "event", "number", &number);
  ZAL_Events_GetParamString(client, "event", "text", text, sizeof text);
  ZAL_Events_GetParamNumberFromArray(client, "event", "array", &number, "member", 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ZAL_ClientHandle client = makeClient();
  zal::fuzz::chooseLogLevel(size);
  reset(*client);
  std::vector<std::uint8_t> image{data, data + size};
  onMessage(image.data(), static_cast<std::uint32_t>(size), client, nullptr);
  runJobs();
  readConfiguration(client);

  const std::vector<CommandPtr> requests = requestsIn(data, size);
  std::erase_if(written, [](const std::string& one) { return !isAnswer(one); });  // subscriptions
  FUZZ_CHECK(written.size() == requests.size());
  for (std::size_t i = 0; i < requests.size(); ++i) checkAnswer(written[i], *requests[i]);
  return 0;
}
