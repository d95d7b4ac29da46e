/* IPC command records: what client and agent say to each other, as lists that travel in one image.
 *
 * A list and its records belong to one thread at a time; they change threads by being handed over whole. A list that is
 * null is an empty one that nothing can be added to.
 */
#ifndef ZAL_IPCCOMMAND_H
#define ZAL_IPCCOMMAND_H

#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Command codes; the values are those on the wire. */
enum {
  ZAL_IPC_CMD_SUBSCRIBE = 1,        /**< to the agent: the client offers the method `name` of `service` */
  ZAL_IPC_CMD_RESPONSE = 3,         /**< to the agent: answer to a request */
  ZAL_IPC_CMD_EVENT = 4,            /**< to the agent: event `name` of `service`, or of "system" */
  ZAL_IPC_CMD_REQUEST = 5,          /**< from the agent: call of a method; `name` is a URI */
  ZAL_IPC_CMD_NOTIFY = 6,           /**< from the agent: "onConnect", "onDisconnect" or "onProfileChanged" */
  ZAL_IPC_CMD_GET_CONFIG = 7,       /**< to the agent: asks for the configuration; `service` is "retrieveConfig" */
  ZAL_IPC_CMD_CONFIG = 8,           /**< from the agent: the configuration document */
  ZAL_IPC_CMD_GATEWAY_REQUEST = 10, /**< to the agent: request to another party; the payload includes its NUL */
  ZAL_IPC_CMD_GATEWAY_RESPONSE = 11 /**< from the agent: answer to a gateway request */
};

/** One command; its texts are terminated. */
typedef struct ZAL_IpcCommand {
  int32_t code;                /**< one of ZAL_IPC_CMD_... */
  char service[256];           /**< whose method, event or request it is */
  char name[256];              /**< of a method, event or notification; of a request a URI */
  char uid[256];               /**< never put on the wire */
  char optionalParam[16];      /**< a text for the application */
  void* payload;               /**< bytes of malloc's that the record owns, without a NUL unless it was sent; or null */
  uint32_t payloadSize;        /**< in bytes; 0 for none */
  uint16_t requestId;          /**< of a gateway request, echoed by its response */
  struct ZAL_IpcCommand* next; /**< the list's own */
} ZAL_IpcCommand;
ZAL_FROZEN_SIZE(ZAL_IpcCommand, 804, 816);

/** Head of a list of records; the list owns its records. */
typedef struct ZAL_IpcCommandList_* ZAL_IpcCommandList;

/**
 * Makes an empty list.
 *
 * Ownership: the list is the caller's, for ZAL_IpcCommand_Destroy.
 *
 * @return the list, or null when memory runs out
 */
ZAL_EXPORT ZAL_IpcCommandList ZAL_IpcCommand_Create(void) ZAL_NOEXCEPT;

/**
 * Adds a copy of a record, with its payload, at the head of the list.
 *
 * Ownership: `command` stays the caller's. A text without terminator is cut to the length of its field.
 * Errors:    when memory runs out the record is missing from the list.
 */
ZAL_EXPORT void ZAL_IpcCommand_Add(ZAL_IpcCommandList list, const ZAL_IpcCommand* command) ZAL_NOEXCEPT;

/**
 * Takes the record at the head off the list.
 *
 * Ownership: the record is the caller's, who frees its payload and then the record with free(). Its `next` is null.
 *
 * @return the record, or null when the list is empty
 */
ZAL_EXPORT ZAL_IpcCommand* ZAL_IpcCommand_Remove(ZAL_IpcCommandList list) ZAL_NOEXCEPT;

/**
 * Encodes the list into one image of the format "A(iBBBBi)", from the head on: code, service, name and optional
 * parameter with their terminators, payload, request id. A receiver gets the records back in the order in which they
 * were added here. An empty list gives an image too.
 *
 * Ownership: the list is unchanged; the image is the caller's (free()), or ZAL_IPC_ClientWrite's once given to that.
 * Errors:    no list, an image beyond 2^32 - 1 bytes, no memory (a level 5 log line): null and 0.
 */
ZAL_EXPORT void ZAL_IpcCommand_GetBuffer(ZAL_IpcCommandList list, void** buffer, uint32_t* size) ZAL_NOEXCEPT;

/**
 * Decodes an image into a new list, from which ZAL_IpcCommand_Remove yields the sender's records in the order in which
 * the sender added them. Texts longer than their field are cut; a text slot is read up to its NUL or its end.
 *
 * Ownership: `buffer` stays the caller's and is not needed afterwards; the list is for ZAL_IpcCommand_Destroy.
 * Errors:    what is no image of command records, and a record for which memory runs out, give null with nothing left
 *            allocated. The engine reports a bad image on standard error.
 *
 * @return the list (empty for an image without records), or null
 */
ZAL_EXPORT ZAL_IpcCommandList ZAL_IpcCommand_Decode(const void* buffer, uint32_t size) ZAL_NOEXCEPT;

/** Frees a list with its records and their payloads; null is a no-op. */
ZAL_EXPORT void ZAL_IpcCommand_Destroy(ZAL_IpcCommandList list) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
