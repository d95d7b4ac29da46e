// Incoming records: notifications and configurations are handled on the loop thread, requests become jobs, and a
// request's job finds its method, calls it and writes the answer.
#include <zal/zal_runtime.h>
#include <zal/zal_uri.h>

#include <cstring>
#include <utility>

#include "base/zal_client/client.hpp"
#include "base/zal_message.hpp"
#include "support/boundary.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"
#include "support/uri.hpp"

namespace zal {

namespace {

constexpr unsigned kDropPauseMs = 500;
constexpr std::size_t kMethodNameSize = 128;
constexpr std::size_t kFilterSize = 2048;

void storePayload(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept {
  // A text that is no JSON leaves the stored document as it is.
  static_cast<void>(storeConfiguration(client, static_cast<const char*>(command.payload), command.payloadSize));
}

/// A job that cannot be queued is logged where that is found out.
void postCallbacks(ZAL_ClientHandle_& client, uv_work_cb work) noexcept {
  static_cast<void>(postJob(client, work, &client));
}

void onConnectNotice(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept {
  storePayload(client, command);
  postCallbacks(client, connectPortalCallbackWork);
}

void onDisconnectNotice(ZAL_ClientHandle_& client, const ZAL_IpcCommand& /*command*/) noexcept {
  postCallbacks(client, disconnectPortalCallbackWork);
}

void onProfileNotice(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept {
  storePayload(client, command);
  postProfileChanged(client, command.service);
}

struct Notice {
  const char* name;
  void (*handle)(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept;
};
constexpr Notice kNotices[] = {
    {"onConnect", onConnectNotice},
    {"onDisconnect", onDisconnectNotice},
    {"onProfileChanged", onProfileNotice},
};

void handleNotify(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept {
  ZAL_LOG_AS(ZAL_LOG_DEBUG, "onMessage", "%d NOTIFY service:%s name:%s \n", command.code, command.service,
             command.name);
  for (const Notice& notice : kNotices) {
    if (std::strcmp(notice.name, command.name) == 0) return notice.handle(client, command);
  }
}

void handleConfiguration(ZAL_ClientHandle_& client, const ZAL_IpcCommand& command) noexcept {
  if (command.payloadSize != 0) storePayload(client, command);
  if (client.configPending.exchange(0) != 0) postCallbacks(client, connectProxyCallbackWork);
}

void postCommand(ZAL_ClientHandle_& client, CommandPtr command) noexcept {
  WorkItemPtr item{new (std::nothrow) ZAL_ClientWorkItem_};
  if (!item) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "onMessage", "out of memory\n");
    return;
  }
  item->client = &client;
  item->requestId = command->requestId;
  item->connection = client.connection;
  item->command = std::move(command);
  postWorkItem(std::move(item));
}

void handleCommand(ZAL_ClientHandle_& client, CommandPtr command) noexcept {
  switch (command->code) {
    case ZAL_IPC_CMD_NOTIFY:
      return handleNotify(client, *command);
    case ZAL_IPC_CMD_REQUEST:
    case ZAL_IPC_CMD_GATEWAY_RESPONSE:
      return postCommand(client, std::move(command));
    case ZAL_IPC_CMD_CONFIG:
      return handleConfiguration(client, *command);
    default:
      ZAL_LOG_AS(ZAL_LOG_WARNING, "onMessage", "%d Unhandled service:%s name%s \n", command->code, command->service,
                 command->name);
  }
}

/// One request on its way through its method. The filter text must outlive the messages, which borrow it.
struct Call {
  ZAL_ClientWorkItem_& item;
  const char* methodName;
  char filter[kFilterSize]{};
  MessagePtr request{ZAL_Message_Create()};
  MessagePtr response{ZAL_Message_Create()};
};

void fillRequest(Call& call) noexcept {
  const ZAL_IpcCommand& command = *call.item.command;
  if (command.payloadSize != 0) {
    // A payload that is no JSON is logged there, and the request has no data.
    ZAL_Message_SetData(call.request.get(),
                        ZAL_Object_CreateFromJson(static_cast<const char*>(command.payload), command.payloadSize));
  }
  ZAL_Message_SetName(call.request.get(), call.methodName);
  ZAL_Message_SetOptionalParam(call.request.get(), command.optionalParam);
}

void callDataset(Call& call, const MethodHandler& method, ZAL_UriParserHandle uri) noexcept {
  ZAL_UriParser_GetPathQuery(uri, call.filter, sizeof call.filter);
  ZAL_MessageHandle response = call.response.get();
  ZAL_Message_SetName(response, call.methodName);
  setMessageFilter(call.request.get(), call.filter);
  setMessageFilter(response, call.filter);
  guarded(ZAL_HERE, [&] { static_cast<void>(method.pathHandler(call.request.get(), response, response)); });
}

/// Calls the method; false when it has no handler of any kind.
bool callMethod(Call& call, const MethodHandler& method, ZAL_UriParserHandle uri) noexcept {
  fillRequest(call);
  if (method.handler != nullptr) {
    guarded(ZAL_HERE,
            [&] { static_cast<void>(method.handler(call.request.get(), call.response.get(), method.userData)); });
    return true;
  }
  if (method.pathHandler == nullptr) return false;
  callDataset(call, method, uri);
  return true;
}

/// Writes the response of a call, addressed as the request was.
void reply(const Call& call) noexcept {
  const CPtr<char> text{ZAL_Message_DumpOutput(call.response.get())};
  CommandView reply = viewOf(*call.item.command);
  reply.code = ZAL_IPC_CMD_RESPONSE;
  reply.optionalParam = {};
  reply.payload = viewOf(text);
  reply.requestId = call.item.requestId;
  writeCommands(*call.item.client, {&reply, 1}, call.item.connection);
}

/// Calls the method that a request names and writes the answer.
void answerRequest(ZAL_ClientWorkItem_& item) noexcept {
  constexpr const char* kFunction = "clientWork";
  const ZAL_IpcCommand& command = *item.command;
  ZAL_LOG_AS(ZAL_LOG_DEBUG, kFunction, "%d REQUEST service:%s name:%s uid:%s \n", command.code, command.service,
             command.name, command.uid);
  const UriPtr uri{ZAL_UriParser_Create(command.name)};
  if (!uri) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, kFunction, "Invalid command name %s\n", command.name);
    return;
  }
  char methodName[kMethodNameSize];
  ZAL_UriParser_GetRootName(uri.get(), methodName, sizeof methodName);
  ZAL_ServiceHandle_* const service = findService(*item.client, command.service);
  if (const auto method = service != nullptr ? findMethod(*service, methodName) : std::nullopt) {
    Call call{.item = item, .methodName = methodName};
    if (call.request && call.response && callMethod(call, *method, uri.get())) return reply(call);
  }
  writeCommands(*item.client, {}, item.connection);  // an image without records: the answer to an unknown method
}

}  // namespace

void dispatchImage(ZAL_ClientHandle_& client, const void* image, std::uint32_t size) noexcept {
  if (!client.isConnected()) {
    ZAL_Sleep(kDropPauseMs);
    return;
  }
  const CommandListPtr list{ZAL_IpcCommand_Decode(image, size)};
  if (!list) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "onMessage", "ipc command decode failed\n");
    return;
  }
  while (CommandPtr command{ZAL_IpcCommand_Remove(list.get())}) handleCommand(client, std::move(command));
}

void work(WorkItemPtr item) noexcept {
  switch (item->command->code) {
    case ZAL_IPC_CMD_GATEWAY_REQUEST:
      return sendGatewayRequest(*item);
    case ZAL_IPC_CMD_GATEWAY_RESPONSE:
      return deliverGatewayResponse(*item);
    default:
      answerRequest(*item);
  }
}

}  // namespace zal
