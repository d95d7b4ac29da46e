/* The client runtime: connection to the agent, services and methods, events, gateway requests, configuration.
 *
 * A client fills its options, is created, gets its services and callbacks, and is started; from then on the library
 * keeps it connected and calls its functions on worker threads, until it is stopped and destroyed.
 *
 * Threads. The client's loop thread, named "ZAL_IPC", does all socket work and calls nothing of the application. Method
 * handlers, dataset handlers, gateway callbacks and the three kinds of client callbacks run on worker threads of
 * libuv's pool, several at a time; UV_THREADPOOL_SIZE sets their number. Two jobs that were queued one after the other
 * can run side by side or in the other order. "Any thread" below means any but the client's loop thread.
 *
 * Null handles and null texts, unless something else is said: a function with a result returns its failure value, one
 * without does nothing. An exception that leaves a handler or callback written in C++ is logged at level 5 and ends
 * there; a handler's answer is sent as far as it was filled.
 */
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

/** What a client is created with; copied whole. */
typedef struct ZAL_ClientOptions {
  char url[256]; /**< the agent's socket: "file://" and an absolute path, or "tcp://" with an IPv4 address and a port */
  int32_t interval; /**< milliseconds before the first attempt and between attempts; below 1 counts as 1000 */
} ZAL_ClientOptions;
ZAL_FROZEN_SIZE(ZAL_ClientOptions, 260, 260);

/** Result codes of the event-parameter accessors. */
enum { ZAL_CLIENT_OK = 0, ZAL_CLIENT_NOT_AVAILABLE = 11, ZAL_CLIENT_DOES_NOT_FIT = 13 };

/**
 * Answers one request: reads `request`, fills `response`. Worker thread. Both messages are the library's and end when
 * the handler returns; what the handler sets as data of the response belongs to the response. The result is ignored.
 *
 * The data of `request` is the JSON document that arrived: the sender's whole envelope, with the sender's own data
 * under its member "data". It is null when the request had no payload or one that is no JSON.
 *
 * The answer belongs to the connection by which the request came. When that has closed before the handler returns, the
 * answer is dropped, also when the client is connected again by then: whoever is at the other end now has not asked.
 */
typedef int (*ZAL_MethodCallback)(ZAL_MessageHandle request, ZAL_MessageHandle response, void* userData);
/**
 * Answers one request for a telemetry dataset, as a method handler does; the response comes twice. Both messages carry
 * the rest of the request's name as their filter, so objects made with ZAL_TelemetryObject_Create(response) keep only
 * the members that were asked for. Worker thread; the result is ignored.
 */
typedef int (*ZAL_DatasetCallback)(ZAL_MessageHandle request, ZAL_MessageHandle response,
                                   ZAL_MessageHandle sameResponse);
/**
 * Told that the connection came up or went down; worker thread. `flag` of a connect callback: 0 after the first
 * configuration of a new connection, 1 for the agent's notice "onConnect". Of a disconnect callback: 1, both for a lost
 * connection and for the notice "onDisconnect". It must not add callbacks to the same client: its lists are locked.
 */
typedef void (*ZAL_ClientEventCallback)(void* userData, unsigned int flag);
/** Told that a new configuration was stored for the profile of `service`; worker thread; must not add callbacks. */
typedef void (*ZAL_ConfigChangeCallback)(void* userData, const char* service);
/**
 * Receives the answer to one gateway request; worker thread. `response` is valid during the call only, and null when
 * the answer's payload is no JSON.
 */
typedef void (*ZAL_GatewayResponseCallback)(ZAL_ObjectHandle response, void* userData);

/**
 * Fills the options with the defaults: url "file:///tmp/zalIPC.sock", interval 1000.
 *
 * Threads:   any thread.
 */
ZAL_EXPORT void ZAL_Client_GetDefaultOptions(ZAL_ClientOptions* options) ZAL_NOEXCEPT;
/**
 * Makes a client with its event loop and transport; nothing connects yet.
 *
 * Ownership: the caller owns the client until ZAL_Client_Destroy. The options are copied.
 * Threads:   any thread.
 * Errors:    null options, no memory, no loop or no transport: each with its level 5 log line.
 *
 * @return the client, or null
 */
ZAL_EXPORT ZAL_ClientHandle ZAL_Client_Create(const ZAL_ClientOptions* options) ZAL_NOEXCEPT;
/**
 * Starts the loop thread and the first connection attempt, and waits at most 1000 ms for the connection.
 *
 * When it does not come up in that time, a level 3 line says so and attempts go on in the background: one attempt every
 * `interval` plus 0 to 99 ms, without end, until the client is stopped. An URL that is refused is tried on like one
 * that cannot be reached; each attempt logs it. A stopped client can be started again: it connects, fetches its
 * configuration and subscribes anew. On a started client, or one that is being destroyed, nothing happens.
 *
 * Threads:   any thread.
 * Errors:    no thread for the loop: a level 5 log line, and the client is not started.
 */
ZAL_EXPORT void ZAL_Client_Start(ZAL_ClientHandle client) ZAL_NOEXCEPT;
/**
 * Ends connection attempts, closes the connection and ends the loop thread, for which it waits.
 *
 * What was sent and is not yet written is dropped. Jobs that are queued or running go on; what they send is dropped
 * too. Reads of the configuration give null from then on. No disconnect callback is called for it. On a client that is
 * not started nothing happens.
 *
 * Threads:   any thread, handlers and callbacks included; a second caller at the same time returns after the first. On
 *            the client's loop thread it is refused with a level 5 log line.
 * Errors:    null: level 5 log line.
 */
ZAL_EXPORT void ZAL_Client_Stop(ZAL_ClientHandle client) ZAL_NOEXCEPT;
/**
 * Stops the client if it is started, waits for its last job, and frees the client with everything it owns: callbacks,
 * services with their methods, the configuration, and gateway requests without an answer, whose callbacks are not
 * called.
 *
 * The agent is not told. The time it takes is that of the handlers that still run or wait for a worker; what they ask
 * of the client meanwhile is dropped.
 *
 * Ownership: takes the client; no other thread but its handlers may use it any more.
 * Threads:   any thread but a worker. Inside a handler or callback, of another client too, it is refused with a level 5
 *            log line and the client stays as it is: the jobs it waits for may be the caller or need its worker. The
 *            same holds for jobs of ZAL_EventLoop_Work, where it is not noticed.
 * Errors:    null: level 5 log line.
 */
ZAL_EXPORT void ZAL_Client_Destroy(ZAL_ClientHandle client) ZAL_NOEXCEPT;
/**
 * The short teardown: ends the loop as ZAL_Client_Destroy does and frees the client's record, locks and loop, but
 * neither its lists, services and configuration nor its transport, which stay allocated. ZAL_Client_Destroy is the one
 * to call.
 *
 * Ownership: takes the client's record.
 * Threads:   as ZAL_Client_Destroy, and refused in the same places. A null client is ignored.
 */
ZAL_EXPORT void ZAL_Destroy(ZAL_ClientHandle client) ZAL_NOEXCEPT;
/**
 * Has `callback` called whenever a connection has come up. Newest first; a function that is in the list already is not
 * added again, whatever its user data.
 *
 * Ownership: `userData` stays the caller's and must live as long as the client.
 * Threads:   any thread, but not inside a callback of the same client, whose lists are then locked.
 */
ZAL_EXPORT void ZAL_Client_AddConnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback,
                                              void* userData) ZAL_NOEXCEPT;
/**
 * Has `callback` called whenever the connection has gone down; otherwise as ZAL_Client_AddConnectCallback.
 */
ZAL_EXPORT void ZAL_Client_AddDisconnectCallback(ZAL_ClientHandle client, ZAL_ClientEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;
/**
 * Has `callback` called whenever the agent announces a changed profile, after the new configuration was stored;
 * otherwise as ZAL_Client_AddConnectCallback.
 */
ZAL_EXPORT void ZAL_Client_AddConfigurationChangeCallback(ZAL_ClientHandle client, ZAL_ConfigChangeCallback callback,
                                                          void* userData) ZAL_NOEXCEPT;
/**
 * Replaces the stored configuration document. A text that is no JSON changes nothing and is not logged.
 *
 * Units:     `length` in bytes; the text needs no NUL.
 * Threads:   any thread; the library calls it on the loop thread.
 *
 * @return 1 stored, 0 not
 */
ZAL_EXPORT int updateServerConfig(ZAL_ClientHandle client, const char* text, size_t length) ZAL_NOEXCEPT;
/**
 * Copies the stored configuration, also while the client is not connected.
 *
 * `path` names a member as in ZAL_Object_GetObject; null or empty means the whole document.
 *
 * Ownership: the caller destroys the copy with ZAL_Object_Destroy.
 * Threads:   any thread.
 *
 * @return the copy, or null when there is no configuration or no such member
 */
ZAL_EXPORT ZAL_ObjectHandle getServerConfig(ZAL_ClientHandle client, const char* path) ZAL_NOEXCEPT;

/**
 * Makes a service without methods. Names beyond 255 characters are cut.
 *
 * Ownership: the caller's until it is given to ZAL_Client_AddService.
 * Threads:   any thread.
 *
 * @return the service, or null when memory runs out
 */
ZAL_EXPORT ZAL_ServiceHandle ZAL_Service_Create(const char* name) ZAL_NOEXCEPT;
/**
 * Adds a method, or replaces the handler and user data of the method of that name; with a null handler an existing
 * method is removed, and a new one answers every request with an image that holds no record.
 *
 * Of a service that a client has taken, too: the next request meets the change, one that runs goes on. The agent learns
 * of it with the next subscription.
 *
 * Ownership: `userData` stays the caller's and must live as long as the service.
 * Threads:   any thread.
 */
ZAL_EXPORT void ZAL_Service_AddMethod(ZAL_ServiceHandle service, const char* name, ZAL_MethodCallback handler,
                                      void* userData) ZAL_NOEXCEPT;
/**
 * Gives a service to the client. It is subscribed with all others after the next connection, not at once.
 *
 * Ownership: takes the service. Where the client has one of the same name, nothing happens and the given service stays
 *            the caller's, who may give it to another client; nothing else frees a service.
 * Threads:   any thread, also while the client is started.
 */
ZAL_EXPORT void ZAL_Client_AddService(ZAL_ClientHandle client, ZAL_ServiceHandle service) ZAL_NOEXCEPT;
/**
 * Finds the newest service whose name the given name begins with: a service "telemetry" is found for "telemetry/cpu",
 * and a service with an empty name for everything.
 *
 * Ownership: the service stays the client's.
 * Threads:   any thread.
 *
 * @return the service, or null
 */
ZAL_EXPORT ZAL_ServiceHandle ZAL_Client_GetService(ZAL_ClientHandle client, const char* name) ZAL_NOEXCEPT;
/**
 * Tells the agent of every method of every service, in one image. The library does it after every new connection.
 *
 * Threads:   any thread.
 * Errors:    not connected: level 5 log line.
 */
ZAL_EXPORT void ZAL_Client_SubscribeServices(ZAL_ClientHandle client) ZAL_NOEXCEPT;
/**
 * Sends a message as an event of `service`. Without a connection it is dropped; the sender is not told.
 *
 * Ownership: takes the message on every path.
 * Threads:   any thread; does not wait for the socket.
 */
ZAL_EXPORT void ZAL_Client_SendPriv(ZAL_ClientHandle client, const char* service,
                                    ZAL_MessageHandle message) ZAL_NOEXCEPT;
/**
 * Sends a message as an event of the service "system"; as ZAL_Client_SendPriv.
 */
ZAL_EXPORT void ZAL_Client_SendEvent(ZAL_ClientHandle client, ZAL_MessageHandle message) ZAL_NOEXCEPT;
/**
 * Sends a message as an event of the given service, whose name is used; as ZAL_Client_SendPriv.
 */
ZAL_EXPORT void ZAL_Service_SendEvent(ZAL_ClientHandle client, ZAL_ServiceHandle service,
                                      ZAL_MessageHandle message) ZAL_NOEXCEPT;
/**
 * Runs a request of the client's own as if the agent had sent it, without payload. The answer goes to the agent, under
 * the request id 65535. `name` is a URI, method name first; `uid` may be null.
 *
 * Threads:   any thread.
 */
ZAL_EXPORT void ZAL_Client_Command_Request(ZAL_ClientHandle client, const char* service, const char* name,
                                           const char* uid) ZAL_NOEXCEPT;
/**
 * Sends a request to another party through the agent, and calls back with its answer. A request without an answer stays
 * pending until the client is destroyed; one that is asked for without a connection is dropped and stays pending too.
 *
 * A null callback is allowed: the answer is then dropped. Without data nothing is sent.
 *
 * Ownership: `data` stays the caller's; it is printed before the call returns. `userData` must live until the callback,
 *            or until the client is destroyed.
 * Threads:   any thread; the request is written on a worker thread.
 */
ZAL_EXPORT void ZAL_Client_Command_Request_Gateway(ZAL_ClientHandle client, const char* service, const char* name,
                                                   ZAL_ObjectHandle data, ZAL_GatewayResponseCallback callback,
                                                   void* userData) ZAL_NOEXCEPT;

/**
 * Copies the stored configuration or one of its members, as getServerConfig does, but only while the client is
 * connected.
 *
 * Ownership: the caller destroys the copy with ZAL_Object_Destroy.
 * Threads:   any thread.
 *
 * @return the copy, or null
 */
ZAL_EXPORT ZAL_ObjectHandle ZAL_Client_GetConfiguration(ZAL_ClientHandle client, const char* path) ZAL_NOEXCEPT;
/**
 * Tells whether the configuration enables an event: the member "enabled" of its settings.
 *
 * The settings of an event lie in the configuration under "events", "settings" and the event's name. Each of these
 * accessors reads a fresh copy of the configuration. Names that do not fit a path of 255 characters are cut.
 *
 * Threads:   any thread.
 *
 * @return 1 enabled, 0 not, or unknown
 */
ZAL_EXPORT int ZAL_Events_GetEnabled(ZAL_ClientHandle client, const char* event) ZAL_NOEXCEPT;
/**
 * Reads a number parameter of an event.
 *
 * Threads:   any thread.
 *
 * @return ZAL_CLIENT_OK, or ZAL_CLIENT_NOT_AVAILABLE and `value` untouched: no connection, no settings or no such
 * parameter
 */
ZAL_EXPORT int ZAL_Events_GetParamNumber(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         int32_t* value) ZAL_NOEXCEPT;
/**
 * Reads a number parameter of an event with its fraction; otherwise as ZAL_Events_GetParamNumber.
 */
ZAL_EXPORT int ZAL_Events_GetParamDouble(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         double* value) ZAL_NOEXCEPT;
/**
 * Reads a boolean parameter of an event; a missing parameter reads as 0.
 *
 * Threads:   any thread.
 *
 * @return ZAL_CLIENT_OK, or ZAL_CLIENT_NOT_AVAILABLE and `value` untouched: no connection, or no configuration with
 *         event settings
 */
ZAL_EXPORT int ZAL_Events_GetParamBool(ZAL_ClientHandle client, const char* event, const char* parameter,
                                       uint8_t* value) ZAL_NOEXCEPT;
/**
 * Copies a text parameter of an event.
 *
 * Units:     `size` in bytes, with the NUL.
 * Threads:   any thread.
 *
 * @return ZAL_CLIENT_OK; ZAL_CLIENT_DOES_NOT_FIT when the text and its NUL need more than `size`, and
 *         ZAL_CLIENT_NOT_AVAILABLE as for the numbers; the buffer is then untouched
 */
ZAL_EXPORT int ZAL_Events_GetParamString(ZAL_ClientHandle client, const char* event, const char* parameter,
                                         char* buffer, size_t size) ZAL_NOEXCEPT;
/**
 * Reads a number member of one element of an array parameter. A null `value` only asks whether the element is there.
 *
 * Threads:   any thread.
 *
 * @return ZAL_CLIENT_OK when the element is there, even if the member is not (`value` is then untouched);
 *         ZAL_CLIENT_NOT_AVAILABLE otherwise
 */
ZAL_EXPORT int ZAL_Events_GetParamNumberFromArray(ZAL_ClientHandle client, const char* event, const char* array,
                                                  int32_t* value, const char* member, int32_t index) ZAL_NOEXCEPT;
/**
 * Reads a boolean member of one element of an array parameter; otherwise as ZAL_Events_GetParamNumberFromArray.
 */
ZAL_EXPORT int ZAL_Events_GetParamBoolFromArray(ZAL_ClientHandle client, const char* event, const char* array,
                                                uint8_t* value, const char* member, int32_t index) ZAL_NOEXCEPT;
/**
 * Makes the service "telemetry", whose methods are datasets.
 *
 * Ownership: as ZAL_Service_Create.
 * Threads:   any thread.
 * Errors:    no memory: level 5 log line.
 *
 * @return the service, or null
 */
ZAL_EXPORT ZAL_ServiceHandle ZAL_TelemetryService_Create(void) ZAL_NOEXCEPT;
/**
 * Adds a dataset, or replaces the callback of the one of that name; with a null callback an existing one is removed. As
 * ZAL_Service_AddMethod otherwise.
 *
 * Threads:   any thread.
 */
ZAL_EXPORT void ZAL_TelemetryService_AddDataset(ZAL_ServiceHandle service, const char* name,
                                                ZAL_DatasetCallback callback) ZAL_NOEXCEPT;

/*
 * The jobs of the runtime, as the worker threads run them. They are of use to programs that schedule them themselves
 * with ZAL_EventLoop_Work: the request's data is the client, for profileChangedCallbackWork and clientWork an item of
 * the library's own, which the job frees. A null request, or one without data, is ignored. Worker threads.
 */

/** Calls the connect callbacks with flag 0, then subscribes all services. */
ZAL_EXPORT void connectProxyCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Calls the connect callbacks with flag 1, then subscribes all services. */
ZAL_EXPORT void connectPortalCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Calls the disconnect callbacks with flag 0; the library itself never queues it. */
ZAL_EXPORT void disconnectProxyCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Calls the disconnect callbacks with flag 1. */
ZAL_EXPORT void disconnectPortalCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Calls the configuration-change callbacks with the service name that the item holds. */
ZAL_EXPORT void profileChangedCallbackWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Runs one command: a request, a gateway request or a gateway response. */
ZAL_EXPORT void clientWork(uv_work_t* request) ZAL_NOEXCEPT;
/** Gives a gateway request its id, remembers its callback and writes it; takes the item. */
ZAL_EXPORT void handleClientRequest(ZAL_ClientWorkItem item) ZAL_NOEXCEPT;
/** Calls back whoever waits for this gateway response; takes the item. */
ZAL_EXPORT void handleGatewayResponse(ZAL_ClientWorkItem item) ZAL_NOEXCEPT;
/** The client's message callback: hands every record of the image to whom it concerns. Loop thread only. While the
 * client is not connected the image is dropped after a pause of 500 ms. */
ZAL_EXPORT void onMessage(void* data, uint32_t size, void* client, void* source) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
