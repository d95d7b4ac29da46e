/*
 * The IPC transport: whole images between a client and the agent over a Unix-domain or TCP stream.
 *
 * A handle serves one side. A client connects to one server; a server listens and accepts any number of clients. The
 * stream is a plain concatenation of serialization images (zal_tpl.h), each of which carries its own length; the
 * receiver gets whole images, in order, each once. A block that does not begin with an image is dropped with all that
 * waited, reported by the engine, and the connection goes on: the next block must itself begin with an image.
 *
 * Threads: callbacks run on the thread of the loop that the handle is bound to, with no lock held. "Loop thread" below
 * means that thread, or any thread before the loop runs. The functions for any thread queue their work and wake the
 * loop; a null handle, context or buffer makes them do nothing.
 *
 * A client's life: ZAL_IPC_Init, the callbacks, ZAL_EventLoop_Run; ZAL_IPC_ClientConnectServer on the loop thread; at
 * the end ZAL_IPC_DisconnectServer, then ZAL_IPC_UnInit before or after ZAL_EventLoop_Stop and ZAL_EventLoop_Destroy.
 * A server's life: the same with ZAL_IPC_ServerCreate, and ZAL_IPC_CloseClient for each client and
 * ZAL_IPC_ServerShutdown at the end. Once the loop is destroyed, ZAL_IPC_UnInit is the only call left.
 */
#ifndef ZAL_IPC_H
#define ZAL_IPC_H

#include <stdint.h>

#include <zal/zal_eventloop.h>
#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** One side of the transport: a client's connection, or a server's listener with its accepted connections. */
typedef struct ZAL_IpcHandle_* ZAL_IpcHandle;

/** One accepted connection on the server side. It lives from the client-connect callback until ZAL_IPC_CloseClient's
 *  close has completed, or until ZAL_IPC_UnInit. */
typedef struct ZAL_IpcClientContext_* ZAL_IpcClientContext;

/**
 * Receives one whole image.
 *
 * Ownership: the image is the transport's and valid during the call only; copy what is to be kept.
 * Threads:   loop thread. It may write, disconnect or close; of a connection closed here nothing more is delivered.
 * Units:     `length` in bytes.
 *
 * @param source the connection's `uv_stream_t` on the client side, its ZAL_IpcClientContext on the server side
 */
typedef void (*ZAL_IpcMessageCallback)(void* image, uint32_t length, void* userData, void* source);

/** Client side: the connection to the server came up, or a connect failed or the connection was lost. Loop thread. */
typedef void (*ZAL_IpcServerEventCallback)(void* userData);

/** Server side: a connection was accepted, or ended. Loop thread. */
typedef void (*ZAL_IpcClientEventCallback)(ZAL_IpcClientContext client, void* userData);

/**
 * Makes a handle on an event loop and takes the loop's user async handle as the wake-up of its write queue. A loop has
 * one user async handle, so one IPC handle at a time belongs to a loop.
 *
 * Ownership: the handle is the caller's, released with ZAL_IPC_UnInit. The loop is borrowed: it is either destroyed
 *            before ZAL_IPC_UnInit or outlives it.
 * Threads:   loop thread.
 *
 * @return the handle; null for a null loop, when memory runs out, and when the async cannot be made (logged)
 */
ZAL_EXPORT ZAL_IpcHandle ZAL_IPC_Init(ZAL_EventLoopContext loop) ZAL_NOEXCEPT;

/**
 * Sets the receiver of images. Without one, arriving images are dropped with a line in the log.
 *
 * Ownership: `userData` is borrowed until ZAL_IPC_UnInit.
 * Threads:   before connecting or listening; the same holds for the four setters below.
 */
ZAL_EXPORT void ZAL_IPC_AddMessageCallback(ZAL_IpcHandle ipc, ZAL_IpcMessageCallback callback,
                                           void* userData) ZAL_NOEXCEPT;

/** Client side: sets who is told that the connection to the server is up. Writes are accepted from then on. */
ZAL_EXPORT void ZAL_IPC_AddServerConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;

/**
 * Client side: sets who is told that a connect failed or was given up, or that the connection was lost: once for each,
 * and not for an established connection that ZAL_IPC_DisconnectServer closes. A connect that failed is over when the
 * callback returns, so the next one is started from a timer rather than from here.
 */
ZAL_EXPORT void ZAL_IPC_AddServerDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcServerEventCallback callback,
                                                    void* userData) ZAL_NOEXCEPT;

/** Server side: sets who is told of each accepted connection, before anything is read from it. */
ZAL_EXPORT void ZAL_IPC_AddClientConnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback,
                                                 void* userData) ZAL_NOEXCEPT;

/**
 * Server side: sets who is told that an accepted connection ended: once for each, at the end of its stream, at a read
 * error, or at its close, whichever comes first. The connection is not closed by its end: the receiver calls
 * ZAL_IPC_CloseClient, here or later, unless it did so before.
 */
ZAL_EXPORT void ZAL_IPC_AddClientDisconnectCallback(ZAL_IpcHandle ipc, ZAL_IpcClientEventCallback callback,
                                                    void* userData) ZAL_NOEXCEPT;

/**
 * Listens: on the socket path that follows "file://", on the IPv4 address and port that follow "tcp://", or, for a URL
 * with neither, on the path "/tmp/zalIPC.sock". A file that stands at the path is removed first.
 *
 * Threads: loop thread.
 * Errors:  null URL, a path that is empty or longer than a socket address holds, a host that is not an IPv4 address, a
 *          port outside 1 to 65535, a handle that already listens: logged, 0. A listener that cannot bind or listen is
 *          only logged; it accepts nothing and is closed like any other.
 *
 * @return 1 listening (or failed to bind or listen), 0 failure
 */
ZAL_EXPORT int ZAL_IPC_ServerCreate(ZAL_IpcHandle ipc, const char* url) ZAL_NOEXCEPT;

/**
 * Starts connecting to the socket path of a "file://" URL or the IPv4 address and port of a "tcp://" URL. Exactly one
 * call of the server-connect or the server-disconnect callback follows a result of 1; when TCP fails at once, before
 * the function returns.
 *
 * Threads: loop thread.
 * Errors:  a null or malformed URL, a path longer than a socket address holds, a host that is not an IPv4 address, a
 *          port outside 1 to 65535, another scheme, a connect in progress, a connection that is up, no memory: logged,
 *          0, and nothing changes.
 *
 * @return 1 connect started, 0 failure
 */
ZAL_EXPORT int ZAL_IPC_ClientConnectServer(ZAL_IpcHandle ipc, const char* url) ZAL_NOEXCEPT;

/**
 * Queues one whole image for the server. Images leave in the order of the calls; one that fails to be written is
 * dropped with a line in the log.
 *
 * Ownership: takes `buffer` (malloc) on every path, also on failure.
 * Threads:   any thread; does not wait for the socket.
 * Units:     `length` in bytes.
 * Errors:    not connected, an empty buffer, no memory: the buffer is freed, nothing is logged.
 *
 * @return 1 queued, 0 not queued
 */
ZAL_EXPORT int ZAL_IPC_ClientWrite(ZAL_IpcHandle ipc, void* buffer, uint32_t length) ZAL_NOEXCEPT;

/**
 * Queues one whole image for one client. All clients of a handle share one queue with one write under way, so a client
 * that does not read holds the others up until it reads or is closed.
 *
 * Ownership: takes `buffer` (malloc) on every path, also on failure.
 * Threads:   any thread; does not wait for the socket.
 * Units:     `length` in bytes.
 * Errors:    a client that is closing or closed, an empty buffer, no memory: the buffer is freed, nothing is logged.
 *            A closed client is told from a live one by its address alone, which a later connection may be given again.
 */
ZAL_EXPORT void ZAL_IPC_ServerWrite(ZAL_IpcHandle ipc, ZAL_IpcClientContext client, void* buffer,
                                    uint32_t length) ZAL_NOEXCEPT;

/**
 * Closes one accepted connection and frees its context when the close has completed. Its waiting writes are dropped,
 * those of other clients are not, and nothing more is read from it.
 *
 * Ownership: takes `client`, which must be alive.
 * Threads:   any thread.
 * Errors:    a second call while the first close is under way does nothing but a line in the log.
 */
ZAL_EXPORT void ZAL_IPC_CloseClient(ZAL_IpcClientContext client) ZAL_NOEXCEPT;

/**
 * Closes the connection to the server, or gives up the connect in progress, which then ends with the server-disconnect
 * callback. Does nothing when there is neither. Waiting writes are dropped, and nothing more is delivered. A new
 * connect may follow as soon as the old one has ended, also while the old stream is still closing.
 *
 * Threads: any thread.
 */
ZAL_EXPORT void ZAL_IPC_DisconnectServer(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;

/**
 * Closes the listener, and removes its socket file when the close completes: listening on the same path again before
 * that would lose the new file. Accepted connections stay; a handle that does not listen is left alone.
 *
 * Threads: any thread.
 */
ZAL_EXPORT void ZAL_IPC_ServerShutdown(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;

/**
 * Waits for the closes and the connect under way, at most 5 seconds each, in steps of 500 ms, and releases the handle.
 * The caller disconnects, closes and shuts down first: what is still open now is closed without a callback.
 *
 * Ownership: takes the handle. What the loop still knows of it after the wait is freed by the loop's thread or by
 *            ZAL_EventLoop_Destroy; what a loop destroyed before left open is freed here.
 * Threads:   any thread but the loop's own, while no other call with the handle is under way; sleeps. The waits need
 *            a running loop, or one that was destroyed before.
 * Errors:    a wait that runs out is logged.
 */
ZAL_EXPORT void ZAL_IPC_UnInit(ZAL_IpcHandle ipc) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
