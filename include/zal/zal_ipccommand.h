/* IPC command records: what client and agent say to each other, as lists that travel in one image. */
#ifndef ZAL_IPCCOMMAND_H
#define ZAL_IPCCOMMAND_H

#include <stdint.h>

#include <zal/zal_export.h>

ZAL_BEGIN_DECLS

/** Command codes; the values are those on the wire. */
enum {
  ZAL_IPC_CMD_SUBSCRIBE = 1,
  ZAL_IPC_CMD_RESPONSE = 3,
  ZAL_IPC_CMD_EVENT = 4,
  ZAL_IPC_CMD_REQUEST = 5,
  ZAL_IPC_CMD_NOTIFY = 6,
  ZAL_IPC_CMD_GET_CONFIG = 7,
  ZAL_IPC_CMD_CONFIG = 8,
  ZAL_IPC_CMD_GATEWAY_REQUEST = 10,
  ZAL_IPC_CMD_GATEWAY_RESPONSE = 11
};

typedef struct ZAL_IpcCommand {
  int32_t code;
  char service[256];
  char name[256];
  char uid[256];
  char optionalParam[16];
  void* payload;
  uint32_t payloadSize;
  uint16_t requestId;
  struct ZAL_IpcCommand* next;
} ZAL_IpcCommand;
ZAL_FROZEN_SIZE(ZAL_IpcCommand, 804, 816);

/** Head of a list of records; the list owns its records. */
typedef struct ZAL_IpcCommandList_* ZAL_IpcCommandList;

ZAL_EXPORT ZAL_IpcCommandList ZAL_IpcCommand_Create(void) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IpcCommand_Add(ZAL_IpcCommandList list, const ZAL_IpcCommand* command) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_IpcCommand* ZAL_IpcCommand_Remove(ZAL_IpcCommandList list) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IpcCommand_GetBuffer(ZAL_IpcCommandList list, void** buffer, uint32_t* size) ZAL_NOEXCEPT;
ZAL_EXPORT ZAL_IpcCommandList ZAL_IpcCommand_Decode(const void* buffer, uint32_t size) ZAL_NOEXCEPT;
ZAL_EXPORT void ZAL_IpcCommand_Destroy(ZAL_IpcCommandList list) ZAL_NOEXCEPT;

ZAL_END_DECLS

#endif
