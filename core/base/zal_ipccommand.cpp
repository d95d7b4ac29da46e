// IPC command records and their lists, and the image "A(iBBBBi)" in which a list travels. A list belongs to one thread
// at a time. What the codes mean is the client's business, the bytes of the image are the serialization engine's.
#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "support/memory.hpp"

struct ZAL_IpcCommandList_ {
  ZAL_IpcCommand* head;
};

namespace {

struct CommandFree {
  void operator()(ZAL_IpcCommand* command) const noexcept {
    std::free(command->payload);
    std::free(command);
  }
};
/// A record with its payload that no list owns yet.
using CommandPtr = std::unique_ptr<ZAL_IpcCommand, CommandFree>;

struct ListDestroy {
  void operator()(ZAL_IpcCommandList list) const noexcept { ZAL_IpcCommand_Destroy(list); }
};
using ListPtr = std::unique_ptr<ZAL_IpcCommandList_, ListDestroy>;

struct MapFree {
  void operator()(tpl_map_node* map) const noexcept { tpl_free(map); }
};
using MapPtr = std::unique_ptr<tpl_map_node, MapFree>;

CommandPtr newCommand() noexcept {
  return CommandPtr{static_cast<ZAL_IpcCommand*>(std::calloc(1, sizeof(ZAL_IpcCommand)))};
}

void pushHead(ZAL_IpcCommandList_& list, CommandPtr command) noexcept {
  command->next = list.head;
  list.head = command.release();
}

/// Copies a text into a field of a zeroed record: up to its NUL or its end, and no more than the field holds.
template <std::size_t Size>
void copyField(char (&field)[Size], const void* text, std::size_t length) noexcept {
  if (text == nullptr) return;
  const std::size_t used = strnlen(static_cast<const char*>(text), std::min(length, Size - 1));
  std::memcpy(field, text, used);
}

template <std::size_t Size>
void copyField(char (&field)[Size], const char (&text)[Size]) noexcept {
  copyField(field, text, Size);
}

/// The variables that one element of the image is packed from and unpacked into.
struct Element {
  std::int32_t code = 0;
  tpl_blob service = {};
  tpl_blob name = {};
  tpl_blob optionalParam = {};
  tpl_blob payload = {};
  std::int32_t requestId = 0;

  [[nodiscard]] MapPtr map() noexcept {
    return MapPtr{tpl_map("A(iBBBBi)", &code, &service, &name, &optionalParam, &payload, &requestId)};
  }
};
constexpr int kElements = 1;  // the index of the image's only array

/// The bytes of a field with its terminator; a field that has none is sent up to its end.
template <std::size_t Size>
tpl_blob blobOf(const char (&field)[Size]) noexcept {
  const std::size_t length = strnlen(field, Size - 1) + 1;
  return {const_cast<char*>(field), static_cast<std::uint32_t>(length)};
}

void fill(Element& element, const ZAL_IpcCommand& command) noexcept {
  element.code = command.code;
  element.service = blobOf(command.service);
  element.name = blobOf(command.name);
  element.optionalParam = blobOf(command.optionalParam);
  element.payload = {command.payload, command.payloadSize};
  element.requestId = command.requestId;
}

/// The record of an unpacked element, which takes over the payload; null when memory runs out. The element owns nothing
/// afterwards.
CommandPtr takeCommand(Element& element) noexcept {
  CommandPtr command = newCommand();
  if (command) {
    command->code = element.code;
    copyField(command->service, element.service.address, element.service.length);
    copyField(command->name, element.name.address, element.name.length);
    copyField(command->optionalParam, element.optionalParam.address, element.optionalParam.length);
    command->payload = std::exchange(element.payload.address, nullptr);
    command->payloadSize = element.payload.length;
    command->requestId = static_cast<std::uint16_t>(element.requestId);
  }
  for (const tpl_blob* blob : {&element.service, &element.name, &element.optionalParam, &element.payload}) {
    if (blob->address != nullptr) tpl_hook.free_fn(blob->address);
  }
  return command;
}

}  // namespace

ZAL_IpcCommandList ZAL_IpcCommand_Create(void) noexcept {
  return static_cast<ZAL_IpcCommandList>(std::calloc(1, sizeof(ZAL_IpcCommandList_)));
}

void ZAL_IpcCommand_Add(ZAL_IpcCommandList list, const ZAL_IpcCommand* command) noexcept {
  if (list == nullptr || command == nullptr) return;
  CommandPtr copy = newCommand();
  if (!copy) return;
  copy->code = command->code;
  copyField(copy->service, command->service);
  copyField(copy->name, command->name);
  copyField(copy->uid, command->uid);
  copyField(copy->optionalParam, command->optionalParam);
  if (command->payloadSize != 0 && command->payload != nullptr) {
    copy->payload = zal::allocateBytes(command->payloadSize).release();
    if (copy->payload == nullptr) return;
    std::memcpy(copy->payload, command->payload, command->payloadSize);
    copy->payloadSize = command->payloadSize;
  }
  copy->requestId = command->requestId;
  pushHead(*list, std::move(copy));
}

ZAL_IpcCommand* ZAL_IpcCommand_Remove(ZAL_IpcCommandList list) noexcept {
  if (list == nullptr || list->head == nullptr) return nullptr;
  ZAL_IpcCommand* command = std::exchange(list->head, list->head->next);
  command->next = nullptr;
  return command;
}

void ZAL_IpcCommand_GetBuffer(ZAL_IpcCommandList list, void** buffer, uint32_t* size) noexcept {
  *buffer = nullptr;
  *size = 0;
  if (list == nullptr) return;
  Element element;
  const MapPtr map = element.map();
  for (const ZAL_IpcCommand* command = list->head; command != nullptr; command = command->next) {
    fill(element, *command);
    static_cast<void>(tpl_pack(map.get(), kElements));  // fails for a bad index alone
  }
  std::size_t imageSize = 0;
  if (tpl_dump(map.get(), TPL_VIA_MEM, buffer, &imageSize) == 0) *size = static_cast<std::uint32_t>(imageSize);
}

ZAL_IpcCommandList ZAL_IpcCommand_Decode(const void* buffer, uint32_t size) noexcept {
  ListPtr list{ZAL_IpcCommand_Create()};
  if (!list) return nullptr;
  Element element;
  const MapPtr map = element.map();
  if (tpl_load(map.get(), TPL_VIA_MEM, const_cast<void*>(buffer), std::size_t{size}) != 0) return nullptr;
  while (tpl_unpack(map.get(), kElements) > 0) {
    CommandPtr command = takeCommand(element);
    if (!command) return nullptr;
    pushHead(*list, std::move(command));
  }
  return list.release();
}

void ZAL_IpcCommand_Destroy(ZAL_IpcCommandList list) noexcept {
  if (list == nullptr) return;
  while (ZAL_IpcCommand* command = ZAL_IpcCommand_Remove(list)) CommandFree{}(command);
  std::free(list);
}
