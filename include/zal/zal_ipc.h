/* The IPC transport: whole images between a client and the agent over a Unix-domain or TCP stream. */
#ifndef ZAL_IPC_H
#define ZAL_IPC_H

#include <stdint.h>

#include <zal/zal_eventloop.h>
#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** One side of the transport: a client's connection, or a server's listener with its accepted connections. */
typedef struct ZAL_IpcHandle_* ZAL_IpcHandle;
/** One accepted connection on the server side. */
typedef struct ZAL_IpcClientContext_* ZAL_IpcClientContext;

/** Receives one whole image, valid during the call only. `source` is the stream (client) or the context (server). */
typedef void (*ZAL_IpcMessageCallback)(void* image, uint32_t length, void* userData, void* source);
/** Client side: the connection to the server came up, or ended. */
typedef void (*ZAL_IpcServerEventCallback)(void* userData);
/** Server side: a connection was accepted, or ended. */
typedef void (*ZAL_IpcClientEventCallback)(ZAL_IpcClientContext client, void* userData);

ZAL_EXPORT ZAL_IpcHandle ZAL_IPC_Init(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_AddMessageCallback(ZAL_IpcHandle ipc, ZAL_IpcMessageCallback callback,
                                           void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_AddServerConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_AddServerDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback,
                                                    void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_AddClientConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_AddClientDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback,
                                                    void* userData) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_IPC_ServerCreate(ZAL_IpcHandle ipc, const char* url) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_IPC_ClientConnectServer(ZAL_IpcHandle ipc, const char* url) ZAL_NOEXCEPT;
ZAL_EXPORT int ZAL_IPC_ClientWrite(ZAL_IpcHandle ipc, void* buffer, uint32_t length) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_ServerWrite(ZAL_IpcHandle ipc, ZAL_IpcClientContext client, void* buffer,
                                    uint32_t length) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_CloseClient(ZAL_IpcClientContext client) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_DisconnectServer(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_ServerShutdown(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IPC_UnInit(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
