// IPC command records and their lists, and the image "A(iBBBBi)" in which a list travels. A list belongs to one thread
// at a time. The image is read and written here without a map, since its format is known; what is wrong with one that
// cannot be read is left to the serialization engine to say. What the codes mean is the client's business.
#include "base/zal_ipccommand.hpp"

#include <zal/zal_ipccommand.h>
#include <zal/zal_tpl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "base/zal_tpl.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"

struct ZAL_IpcCommandList_ {
  ZAL_IpcCommand* head;
};

namespace {

using zal::CommandView;
using zal::CPtr;
using zal::Image;

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

constexpr std::string_view kFormat{"A(iBBBBi)\0", 10};  // with its terminator, as it stands in the image
constexpr std::size_t kFrontSize = zal::tpl::kHeaderSize + kFormat.size() + sizeof(std::uint32_t);

/// The text of a field; one that has no terminator ends with the field.
template <std::size_t Size>
std::string_view textOf(const char (&field)[Size]) noexcept {
  return {field, strnlen(field, Size - 1)};
}

constexpr std::size_t kTexts = 3;  // they are sent with their terminators
constexpr std::size_t kLeastSize = (2 + kTexts + 1) * sizeof(std::uint32_t) + kTexts;  // numbers, lengths, terminators
constexpr std::size_t kLongestTexts =
    sizeof ZAL_IpcCommand::service + sizeof ZAL_IpcCommand::name + sizeof ZAL_IpcCommand::optionalParam - kTexts;
constexpr auto kLargestImage = std::numeric_limits<std::uint32_t>::max();

std::size_t sizeOf(const CommandView& command) noexcept {
  return kLeastSize + command.service.size() + command.name.size() + command.optionalParam.size() +
         command.payload.size();
}

void writeBlob(zal::tpl::Writer& out, std::string_view bytes) noexcept {
  out.value(static_cast<std::uint32_t>(bytes.size()));
  out.bytes(bytes.data(), bytes.size());
}

void writeText(zal::tpl::Writer& out, std::string_view text) noexcept {
  out.value(static_cast<std::uint32_t>(text.size() + 1));
  out.bytes(text.data(), text.size());
  out.value('\0');
}

void write(zal::tpl::Writer& out, const CommandView& command) noexcept {
  out.value(command.code);
  writeText(out, command.service);
  writeText(out, command.name);
  writeText(out, command.optionalParam);
  writeBlob(out, command.payload);
  out.value(command.requestId);
}

/// Encodes what `forEach` calls its argument with, into a block of `room` bytes.
template <class ForEach>
Image encodeAll(std::uint64_t room, ForEach forEach) noexcept {
  if (room > kLargestImage) {
    tpl_hook.report_fn("tpl_dump: image exceeds %u bytes\n", kLargestImage);
    return {};
  }
  char* const start = static_cast<char*>(tpl_hook.alloc_fn(static_cast<std::size_t>(room)));
  if (start == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_IpcCommand_GetBuffer", "out of memory\n");
    return {};
  }
  zal::tpl::Writer records{start + kFrontSize};
  std::uint32_t count = 0;
  forEach([&](const CommandView& command) {
    write(records, command);
    ++count;
  });
  const auto size = static_cast<std::uint32_t>(records.position() - start);
  zal::tpl::Writer front{start};
  zal::tpl::writeHeader(front, size, false);
  front.bytes(kFormat.data(), kFormat.size());
  front.value(count);
  return {CPtr<void>{start}, size};
}

/// Calls `take` with each record of a list, from the head on.
template <class Take>
void forEachOf(const ZAL_IpcCommandList_& list, Take take) noexcept {
  for (const ZAL_IpcCommand* command = list.head; command != nullptr; command = command->next) take(*command);
}

/// The bytes that a list's image takes, or more where that is little: measuring the texts of a short list takes as long
/// as writing it.
std::uint64_t roomFor(const ZAL_IpcCommandList_& list) noexcept {
  constexpr std::uint64_t kLittle = 1 << 17;
  std::uint64_t most = kFrontSize;
  for (const ZAL_IpcCommand* command = list.head; command != nullptr && most <= kLittle; command = command->next)
    most += kLeastSize + kLongestTexts + command->payloadSize;
  if (most <= kLittle) return most;
  std::uint64_t size = kFrontSize;
  forEachOf(list, [&](const ZAL_IpcCommand& command) { size += sizeOf(zal::viewOf(command)); });
  return size;
}

/// Gives back what an image has left of its block of `room` bytes, when that is worth the time.
void trim(Image& image, std::uint64_t room) noexcept {
  constexpr std::uint64_t kWorthless = 1024;
  if (room - image.size <= kWorthless) return;
  void* const trimmed = tpl_hook.realloc_fn(image.bytes.get(), image.size);
  if (trimmed == nullptr) return;  // the block is still whole
  static_cast<void>(image.bytes.release());
  image.bytes.reset(trimmed);
}

template <std::size_t Size>
[[nodiscard]] bool readText(zal::tpl::Reader& in, char (&field)[Size]) noexcept {
  const auto text = in.blob();
  if (text) copyField(field, text->data(), text->size());
  return text.has_value();
}

/// Copies a payload into a record that has none; false when memory runs out.
[[nodiscard]] bool copyPayload(ZAL_IpcCommand& command, const void* bytes, std::uint32_t size) noexcept {
  if (size == 0) return true;
  command.payload = zal::allocateBytes(size).release();
  if (command.payload == nullptr) return false;
  std::memcpy(command.payload, bytes, size);
  command.payloadSize = size;
  return true;
}

enum class Outcome { kWhole, kInvalid, kNoMemory };

/// Fills a zeroed record with the next one of an image; each value goes straight to its place.
Outcome read(zal::tpl::Reader& in, ZAL_IpcCommand& command) noexcept {
  const auto code = in.length();
  if (!code || !readText(in, command.service) || !readText(in, command.name) || !readText(in, command.optionalParam))
    return Outcome::kInvalid;
  const auto payload = in.blob();
  const auto requestId = in.length();
  if (!payload || !requestId) return Outcome::kInvalid;
  command.code = static_cast<std::int32_t>(*code);
  command.requestId = static_cast<std::uint16_t>(*requestId);
  const bool isCopied = copyPayload(command, payload->data(), static_cast<std::uint32_t>(payload->size()));
  return isCopied ? Outcome::kWhole : Outcome::kNoMemory;
}

/// A reader of an image of this format that stands at the count of its records; nothing when its front is not as it
/// must be.
std::optional<zal::tpl::Reader> open(std::string_view image) noexcept {
  const auto header = zal::tpl::readHeader(image);
  if (!header || (header->flags & ~zal::tpl::kKnownFlags) != 0 || header->length != image.size()) return std::nullopt;
  zal::tpl::Reader reader{image.substr(zal::tpl::kHeaderSize), header->encoding};
  const char* const format = reader.take(kFormat.size());
  if (format == nullptr || std::string_view{format, kFormat.size()} != kFormat) return std::nullopt;
  return reader;
}

/// Adds an image's records to a list.
Outcome decodeInto(ZAL_IpcCommandList_& list, std::string_view image) noexcept {
  auto reader = open(image);
  auto left = reader ? reader->length() : std::nullopt;
  if (!left) return Outcome::kInvalid;
  for (; *left > 0; --*left) {
    CommandPtr command = newCommand();
    if (!command) return Outcome::kNoMemory;
    if (const Outcome outcome = read(*reader, *command); outcome != Outcome::kWhole) return outcome;
    pushHead(list, std::move(command));
  }
  return reader->left() == 0 ? Outcome::kWhole : Outcome::kInvalid;
}

/// Has the engine say what is wrong with an image.
void reportInvalid(std::string_view image) noexcept {
  std::int32_t number = 0;
  tpl_blob blob{};
  const MapPtr map{tpl_map(kFormat.data(), &number, &blob, &blob, &blob, &blob, &number)};
  static_cast<void>(tpl_load(map.get(), TPL_VIA_MEM, const_cast<char*>(image.data()), image.size()));
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
  if (command->payload != nullptr && !copyPayload(*copy, command->payload, command->payloadSize)) return;
  copy->requestId = command->requestId;
  pushHead(*list, std::move(copy));
}

ZAL_IpcCommand* ZAL_IpcCommand_Remove(ZAL_IpcCommandList list) noexcept {
  if (list == nullptr || list->head == nullptr) return nullptr;
  ZAL_IpcCommand* command = std::exchange(list->head, list->head->next);
  command->next = nullptr;
  return command;
}

zal::CommandView zal::viewOf(const ZAL_IpcCommand& command) noexcept {
  return {.code = command.code,
          .service = textOf(command.service),
          .name = textOf(command.name),
          .optionalParam = textOf(command.optionalParam),
          .payload = {static_cast<const char*>(command.payload), command.payload == nullptr ? 0 : command.payloadSize},
          .requestId = command.requestId};
}

zal::Image zal::encode(std::span<const CommandView> commands) noexcept {
  const auto forEach = [&](auto take) {
    for (CommandView command : commands) {
      command.service = command.service.substr(0, sizeof ZAL_IpcCommand::service - 1);
      command.name = command.name.substr(0, sizeof ZAL_IpcCommand::name - 1);
      command.optionalParam = command.optionalParam.substr(0, sizeof ZAL_IpcCommand::optionalParam - 1);
      take(command);
    }
  };
  std::uint64_t size = kFrontSize;
  forEach([&](const CommandView& command) { size += sizeOf(command); });
  return encodeAll(size, forEach);
}

void ZAL_IpcCommand_GetBuffer(ZAL_IpcCommandList list, void** buffer, uint32_t* size) noexcept {
  *buffer = nullptr;
  *size = 0;
  if (list == nullptr) return;
  const std::uint64_t room = roomFor(*list);
  Image image = encodeAll(
      room, [&](auto take) { forEachOf(*list, [&](const ZAL_IpcCommand& command) { take(zal::viewOf(command)); }); });
  if (!image.bytes) return;
  trim(image, room);
  *size = image.size;
  *buffer = image.bytes.release();
}

ZAL_IpcCommandList ZAL_IpcCommand_Decode(const void* buffer, uint32_t size) noexcept {
  ListPtr list{ZAL_IpcCommand_Create()};
  if (!list) return nullptr;
  const std::string_view image{static_cast<const char*>(buffer), size};
  const Outcome outcome = decodeInto(*list, image);
  if (outcome == Outcome::kInvalid) reportInvalid(image);
  return outcome == Outcome::kWhole ? list.release() : nullptr;
}

void ZAL_IpcCommand_Destroy(ZAL_IpcCommandList list) noexcept {
  if (list == nullptr) return;
  while (ZAL_IpcCommand* command = ZAL_IpcCommand_Remove(list)) CommandFree{}(command);
  std::free(list);
}
