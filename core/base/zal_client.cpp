// The client runtime's front door: every exported function checks its arguments here and calls the room that does the
// work (connection, callbacks, configuration, services, dispatch, gateway, events, jobs).
#include <zal/zal_client.h>
#include <zal/zal_runtime.h>

#include <cstring>
#include <utility>

#include "base/zal_client/client.hpp"
#include "base/zal_client/events.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

// Life of a client.

void ZAL_Client_GetDefaultOptions(ZAL_ClientOptions* options) noexcept {
  if (options == nullptr) return;
  zalstrlcpy(options->url, "file:///tmp/zalIPC.sock", sizeof options->url);
  options->interval = 1000;
}

ZAL_ClientHandle ZAL_Client_Create(const ZAL_ClientOptions* options) noexcept {
  if (options == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "invalid input options\n");
    return nullptr;
  }
  return zal::createClient(*options);
}

void ZAL_Client_Start(ZAL_ClientHandle client) noexcept {
  if (client != nullptr) zal::startClient(*client);
}

void ZAL_Client_Stop(ZAL_ClientHandle client) noexcept {
  if (client == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "NULL pointer passed to ZAL_Client_Stop");
    return;
  }
  zal::stopClient(*client);
}

void ZAL_Client_Destroy(ZAL_ClientHandle client) noexcept {
  if (client == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "NULL pointer passed to ZAL_Client_Destroy");
    return;
  }
  // Whatever a handler reads is freed only after the last handler has returned.
  if (!zal::quiesceClient(*client, __func__)) return;
  const std::unique_ptr<ZAL_ClientHandle_> owned{client};
  zal::destroyLoop(*client);
  ZAL_IPC_UnInit(client->ipc);
}

void ZAL_Destroy(ZAL_ClientHandle client) noexcept {
  if (client == nullptr || !zal::quiesceClient(*client, __func__)) return;
  const std::unique_ptr<ZAL_ClientHandle_> owned{client};
  zal::destroyLoop(*client);
  zal::forsakeContents(*client);
}

// Callbacks.

void ZAL_Client_AddConnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback, void* userData) noexcept {
  if (client == nullptr || callback == nullptr) return;
  zal::addEventCallback(*client, &ZAL_ClientHandle_::connectCallbacks, callback, userData, __func__);
}

void ZAL_Client_AddDisconnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback,
                                      void* userData) noexcept {
  if (client == nullptr || callback == nullptr) return;
  zal::addEventCallback(*client, &ZAL_ClientHandle_::disconnectCallbacks, callback, userData, __func__);
}

void ZAL_Client_AddConfigurationChangeCallback(ZAL_ClientHandle client, ZAL_ConfigChangeCallback callback,
                                               void* userData) noexcept {
  if (client != nullptr && callback != nullptr) zal::addConfigCallback(*client, callback, userData);
}

namespace {

ZAL_ClientHandle clientOf(uv_work_t* request) noexcept {
  return request != nullptr ? static_cast<ZAL_ClientHandle>(request->data) : nullptr;
}

void connectWork(uv_work_t* request, unsigned flag) noexcept {
  ZAL_ClientHandle client = clientOf(request);
  if (client == nullptr) return;
  zal::runEventCallbacks(*client, &ZAL_ClientHandle_::connectCallbacks, flag);
  zal::subscribeServices(*client);
}

void disconnectWork(uv_work_t* request, unsigned flag) noexcept {
  ZAL_ClientHandle client = clientOf(request);
  if (client != nullptr) zal::runEventCallbacks(*client, &ZAL_ClientHandle_::disconnectCallbacks, flag);
}

}  // namespace

void connectProxyCallbackWork(uv_work_t* request) noexcept {
  connectWork(request, 0);
}

void connectPortalCallbackWork(uv_work_t* request) noexcept {
  connectWork(request, 1);
}

void disconnectProxyCallbackWork(uv_work_t* request) noexcept {
  disconnectWork(request, 0);
}

void disconnectPortalCallbackWork(uv_work_t* request) noexcept {
  disconnectWork(request, 1);
}

void profileChangedCallbackWork(uv_work_t* request) noexcept {
  if (request == nullptr || request->data == nullptr) return;
  const std::unique_ptr<zal::ProfileJob> job{static_cast<zal::ProfileJob*>(request->data)};
  zal::runConfigCallbacks(*job);
}

// Services and methods.

ZAL_ServiceHandle ZAL_Service_Create(const char* name) noexcept {
  return name != nullptr ? zal::makeService(name).release() : nullptr;
}

void ZAL_Service_AddMethod(ZAL_ServiceHandle service, const char* name, ZAL_MethodCallback handler,
                           void* userData) noexcept {
  if (service == nullptr || name == nullptr) return;
  const zal::LockGuard hold{service->methodsMutex};
  zal::MethodHandler* method = zal::changeMethodLocked(
      *service, {.name = name, .removes = handler == nullptr, .group = service->name, .function = __func__});
  if (method == nullptr) return;
  method->handler = handler;
  method->userData = userData;
}

ZAL_ServiceHandle ZAL_TelemetryService_Create() noexcept {
  ZAL_ServiceHandle service = zal::makeService("telemetry").release();
  if (service == nullptr) ZAL_LOG(ZAL_LOG_ERROR, "out of memory\n");
  return service;
}

void ZAL_TelemetryService_AddDataset(ZAL_ServiceHandle service, const char* name,
                                     ZAL_DatasetCallback callback) noexcept {
  if (service == nullptr || name == nullptr) return;
  const zal::LockGuard hold{service->methodsMutex};
  zal::MethodHandler* dataset = zal::changeMethodLocked(
      *service, {.name = name, .removes = callback == nullptr, .group = "telemetry", .function = __func__});
  if (dataset != nullptr) dataset->pathHandler = callback;
}

void ZAL_Client_AddService(ZAL_ClientHandle client, ZAL_ServiceHandle service) noexcept {
  if (client != nullptr && service != nullptr) zal::addService(*client, *service);
}

ZAL_ServiceHandle ZAL_Client_GetService(ZAL_ClientHandle client, const char* name) noexcept {
  return client != nullptr && name != nullptr ? zal::findServiceByPrefix(*client, name) : nullptr;
}

void ZAL_Client_SubscribeServices(ZAL_ClientHandle client) noexcept {
  if (client != nullptr) zal::subscribeServices(*client);
}

// Commands from the agent.

void onMessage(void* data, uint32_t size, void* client, void* /*source*/) noexcept {
  if (client != nullptr) zal::dispatchImage(*static_cast<ZAL_ClientHandle>(client), data, size);
}

void clientWork(uv_work_t* request) noexcept {
  if (request == nullptr || request->data == nullptr) return;
  zal::work(zal::WorkItemPtr{static_cast<ZAL_ClientWorkItem>(request->data)});
}

void handleClientRequest(ZAL_ClientWorkItem item) noexcept {
  if (const zal::WorkItemPtr owned{item}) zal::sendGatewayRequest(*owned);
}

void handleGatewayResponse(ZAL_ClientWorkItem item) noexcept {
  if (const zal::WorkItemPtr owned{item}) zal::deliverGatewayResponse(*owned);
}

// Requests of the application.

namespace {

/// An item around a new record that is addressed to `service` and `name`; null when memory runs out.
zal::WorkItemPtr makeItem(ZAL_ClientHandle client, int32_t code, const char* service, const char* name) noexcept {
  zal::WorkItemPtr item{new (std::nothrow) ZAL_ClientWorkItem_};
  if (!item || !(item->command = zal::makeCommand())) return nullptr;
  item->client = client;
  item->command->code = code;
  zalstrlcpy(item->command->service, service, sizeof item->command->service);
  zalstrlcpy(item->command->name, name, sizeof item->command->name);
  return item;
}

}  // namespace

void ZAL_Client_Command_Request(ZAL_ClientHandle client, const char* service, const char* name,
                                const char* uid) noexcept {
  if (client == nullptr || service == nullptr || name == nullptr) return;
  zal::WorkItemPtr item = makeItem(client, ZAL_IPC_CMD_REQUEST, service, name);
  if (!item) return;
  if (uid != nullptr) zalstrlcpy(item->command->uid, uid, sizeof item->command->uid);
  item->requestId = UINT16_MAX;
  zal::postWorkItem(std::move(item));
}

void ZAL_Client_Command_Request_Gateway(ZAL_ClientHandle client, const char* service, const char* name,
                                        ZAL_ObjectHandle data, ZAL_GatewayResponseCallback callback,
                                        void* userData) noexcept {
  if (client == nullptr || service == nullptr || name == nullptr) return;
  zal::WorkItemPtr item = makeItem(client, ZAL_IPC_CMD_GATEWAY_REQUEST, service, name);
  if (!item) return;
  zal::CPtr<char> text{ZAL_Object_DumpOutput(data)};
  if (!text) return;
  item->command->payloadSize = static_cast<uint32_t>(std::strlen(text.get()) + 1);  // with its NUL
  item->command->payload = text.release();
  item->callback = callback;
  item->userData = userData;
  zal::postWorkItem(std::move(item));
}

// Events.

void ZAL_Client_SendPriv(ZAL_ClientHandle client, const char* service, ZAL_MessageHandle message) noexcept {
  zal::sendEvent(client, service, zal::MessagePtr{message});
}

void ZAL_Client_SendEvent(ZAL_ClientHandle client, ZAL_MessageHandle message) noexcept {
  ZAL_Client_SendPriv(client, "system", message);
}

void ZAL_Service_SendEvent(ZAL_ClientHandle client, ZAL_ServiceHandle service, ZAL_MessageHandle message) noexcept {
  ZAL_Client_SendPriv(client, service != nullptr ? service->name : nullptr, message);
}

// Configuration.

int updateServerConfig(ZAL_ClientHandle client, const char* text, size_t length) noexcept {
  return client != nullptr && zal::storeConfiguration(*client, text, length) ? 1 : 0;
}

ZAL_ObjectHandle getServerConfig(ZAL_ClientHandle client, const char* path) noexcept {
  return client != nullptr ? zal::copyConfiguration(*client, path) : nullptr;
}

ZAL_ObjectHandle ZAL_Client_GetConfiguration(ZAL_ClientHandle client, const char* path) noexcept {
  return client != nullptr && client->isConnected() ? zal::copyConfiguration(*client, path) : nullptr;
}

namespace {

/// Reads one parameter with a typed getter of the data model.
template <class Getter, class Value>
int readParameter(ZAL_ClientHandle client, const char* event, const char* parameter, Getter get,
                  Value* value) noexcept {
  const zal::EventSettings settings{client, event, parameter};
  if (value == nullptr || !settings.available()) return ZAL_CLIENT_NOT_AVAILABLE;
  return get(settings.events(), settings.path(), value) != 0 ? ZAL_CLIENT_OK : ZAL_CLIENT_NOT_AVAILABLE;
}

/// The same for a member of an element of an array parameter; a missing member leaves the value as it is.
template <class Getter, class Value>
int readElement(ZAL_ClientHandle client, const char* event, const char* array, Getter get, Value* value,
                const char* member, int32_t index) noexcept {
  const zal::EventSettings settings{client, event, array};
  const zal::ObjectPtr element = settings.element(index);
  if (!element) return ZAL_CLIENT_NOT_AVAILABLE;
  if (value != nullptr && member != nullptr) static_cast<void>(get(element.get(), member, value));
  return ZAL_CLIENT_OK;
}

}  // namespace

int ZAL_Events_GetEnabled(ZAL_ClientHandle client, const char* event) noexcept {
  uint8_t enabled = 0;
  static_cast<void>(readParameter(client, event, "enabled", ZAL_Object_GetBool, &enabled));  // unknown is not enabled
  return enabled;
}

int ZAL_Events_GetParamNumber(ZAL_ClientHandle client, const char* event, const char* parameter,
                              int32_t* value) noexcept {
  return readParameter(client, event, parameter, ZAL_Object_GetInt32, value);
}

int ZAL_Events_GetParamDouble(ZAL_ClientHandle client, const char* event, const char* parameter,
                              double* value) noexcept {
  return readParameter(client, event, parameter, ZAL_Object_GetDouble, value);
}

int ZAL_Events_GetParamBool(ZAL_ClientHandle client, const char* event, const char* parameter,
                            uint8_t* value) noexcept {
  const zal::EventSettings settings{client, event, parameter};
  if (value == nullptr || !settings.available()) return ZAL_CLIENT_NOT_AVAILABLE;
  uint8_t found = 0;  // what a missing parameter counts as
  static_cast<void>(ZAL_Object_GetBool(settings.events(), settings.path(), &found));
  *value = found;
  return ZAL_CLIENT_OK;
}

int ZAL_Events_GetParamString(ZAL_ClientHandle client, const char* event, const char* parameter, char* buffer,
                              size_t size) noexcept {
  const zal::EventSettings settings{client, event, parameter};
  if (buffer == nullptr || !settings.available()) return ZAL_CLIENT_NOT_AVAILABLE;
  const char* text = ZAL_Object_GetString(settings.events(), settings.path());
  if (text == nullptr) return ZAL_CLIENT_NOT_AVAILABLE;
  if (std::strlen(text) >= size) return ZAL_CLIENT_DOES_NOT_FIT;
  zalstrlcpy(buffer, text, size);
  return ZAL_CLIENT_OK;
}

int ZAL_Events_GetParamNumberFromArray(ZAL_ClientHandle client, const char* event, const char* array, int32_t* value,
                                       const char* member, int32_t index) noexcept {
  return readElement(client, event, array, ZAL_Object_GetInt32, value, member, index);
}

int ZAL_Events_GetParamBoolFromArray(ZAL_ClientHandle client, const char* event, const char* array, uint8_t* value,
                                     const char* member, int32_t index) noexcept {
  return readElement(client, event, array, ZAL_Object_GetBool, value, member, index);
}
