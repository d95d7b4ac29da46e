/* The client runtime: connection to the agent, services and methods, events, gateway requests, configuration. */
#ifndef ZAL_CLIENT_H
#define ZAL_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <uv.h>

#include <zal/zal_export.h>
#include <zal/zal_message.h>
#include <zal/zal_object.h>

ZAL_BEGIN_DECLS

/** A client of the agent. */
typedef struct ZAL_ClientHandle_* ZAL_ClientHandle;
/** A named group of methods. */
typedef struct ZAL_ServiceHandle_* ZAL_ServiceHandle;
/** One received or local command on its way to a worker. */
typedef struct ZAL_ClientWorkItem_* ZAL_ClientWorkItem;

typedef struct ZAL_ClientOptions {
  char url[256];
  int32_t interval;
} ZAL_ClientOptions;
ZAL_FROZEN_SIZE(ZAL_ClientOptions, 260, 260);

/** Result codes of the event-parameter accessors. */
enum { ZAL_CLIENT_OK = 0, ZAL_CLIENT_NOT_AVAILABLE = 11, ZAL_CLIENT_DOES_NOT_FIT = 13 };

typedef int (*ZAL_MethodCallback)(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData);
typedef int (*ZAL_DatasetCallback)(ZAL_MessageHandle request, ZAL_MessageHandle response,
                                   ZAL_MessageHandle sameResponse);
typedef void (*ZAL_ClientEventCallback)(void* userData, unsigned int flag);
typedef void (*ZAL_ConfigChangeCallback)(void* userData, const char* service);
typedef void (*ZAL_GatewayResponseCallback)(ZAL_ObjectHandle response, void* userData);

ZAL_EXPORT void ZAL_Client_GetDefaultOptions(ZAL_ClientOptions* options) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ClientHandle ZAL_Client_Create(const ZAL_ClientOptions* options) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_Start(ZAL_ClientHandle client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_Stop(ZAL_ClientHandle client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_Destroy(ZAL_ClientHandle client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Destroy(ZAL_ClientHandle client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_AddConnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback,
                                              void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_AddDisconnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_AddConfigurationChangeCallback(ZAL_ClientHandle client, ZAL_ConfigChangeCallback callback,
                                                          void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT int updateServerConfig(ZAL_ClientHandle client, const char* text, size_t length) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ObjectHandle getServerConfig(ZAL_ClientHandle client, const char* path) ZAL_NOEXCEPT;

ZAL_EXPORT ZAL_ServiceHandle ZAL_Service_Create(const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Service_AddMethod(ZAL_ServiceHandle service, const char* name, ZAL_MethodCallback handler,
                                      void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_AddService(ZAL_ClientHandle client, ZAL_ServiceHandle service) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ServiceHandle ZAL_Client_GetService(ZAL_ClientHandle client, const char* name) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_SubscribeServices(ZAL_ClientHandle client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_SendPriv(ZAL_ClientHandle client, const char* service,
                                    ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_SendEvent(ZAL_ClientHandle client, ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Service_SendEvent(ZAL_ClientHandle client, ZAL_ServiceHandle service,
                                      ZAL_MessageHandle message) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_Command_Request(ZAL_ClientHandle client, const char* service, const char* name,
                                           const char* uid) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_Client_Command_Request_Gateway(ZAL_ClientHandle client, const char* service, const char* name,
                                                   ZAL_ObjectHandle data, ZAL_GatewayResponseCallback callback,
                                                   void* userData) ZAL_NOEXCEPT;

ZAL_EXPORT ZAL_ObjectHandle ZAL_Client_GetConfiguration(ZAL_ClientHandle client, const char* path) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetEnabled(ZAL_ClientHandle client, const char* event) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamNumber(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         int32_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamDouble(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         double* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamBool(ZAL_ClientHandle client, const char* event, const char* parameter,
                                       uint8_t* value) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamString(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         char* buffer, size_t size) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamNumberFromArray(ZAL_ClientHandle client, const char* event, const char* array,
                                                  int32_t* value, const char* member, int32_t index) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_Events_GetParamBoolFromArray(ZAL_ClientHandle client, const char* event, const char* array,
                                                uint8_t* value, const char* member, int32_t index) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_ServiceHandle ZAL_TelemetryService_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_TelemetryService_AddDataset(ZAL_ServiceHandle service, const char* name,
                                                ZAL_DatasetCallback callback) ZAL_NOEXCEPT;

ZAL_EXPORT void connectProxyCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void connectPortalCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void disconnectProxyCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void disconnectPortalCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void profileChangedCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void clientWork(uv_work_t* request) ZAL_NOEXCEPT;
ZAL_EXPORT void handleClientRequest(ZAL_ClientWorkItem item) ZAL_NOEXCEPT;
ZAL_EXPORT void handleGatewayResponse(ZAL_ClientWorkItem item) ZAL_NOEXCEPT;
ZAL_EXPORT void onMessage(void* data, uint32_t size, void* client, void* source) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
