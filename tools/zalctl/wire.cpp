#include "wire.hpp"

#include <zal/zal_message.h>
#include <zal/zal_runtime.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zalctl {
namespace {

struct ListDestroy {
  using pointer = ZAL_IpcCommandList;
  void operator()(ZAL_IpcCommandList list) const noexcept { ZAL_IpcCommand_Destroy(list); }
};
using ListPtr = std::unique_ptr<ZAL_IpcCommandList, ListDestroy>;

struct CommandFree {
  void operator()(ZAL_IpcCommand* command) const noexcept {
    if (command->payloadSize != 0) std::free(command->payload);
    std::free(command);
  }
};
using CommandPtr = std::unique_ptr<ZAL_IpcCommand, CommandFree>;

struct MessageDestroy {
  using pointer = ZAL_MessageHandle;
  void operator()(ZAL_MessageHandle message) const noexcept { ZAL_Message_Destroy(message); }
};
using MessagePtr = std::unique_ptr<ZAL_MessageHandle, MessageDestroy>;

Record toRecord(const ZAL_IpcCommand& command) {
  Record record{command.code, command.service, command.name, {}, command.requestId};
  if (command.payloadSize != 0) record.payload.assign(static_cast<const char*>(command.payload), command.payloadSize);
  return record;
}

}  // namespace

std::string kindOf(const Record& record) {
  const auto* kind = std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind& k) { return k.code == record.code; });
  return kind != kKinds.end() ? std::string{kind->name} : "code " + std::to_string(record.code);
}

Image encode(const Record& record) {
  ZAL_IpcCommand command{};
  command.code = record.code;
  zalstrlcpy(command.service, record.service.c_str(), sizeof command.service);
  zalstrlcpy(command.name, record.name.c_str(), sizeof command.name);
  command.payload = const_cast<char*>(record.payload.data());  // only read: the list makes a copy
  command.payloadSize = static_cast<std::uint32_t>(record.payload.size());
  command.requestId = record.requestId;

  const ListPtr list{ZAL_IpcCommand_Create()};
  if (!list) return {};
  ZAL_IpcCommand_Add(list.get(), &command);
  void* bytes = nullptr;
  std::uint32_t size = 0;
  ZAL_IpcCommand_GetBuffer(list.get(), &bytes, &size);
  return {std::unique_ptr<void, CFree>{bytes}, size};
}

std::optional<std::vector<Record>> decode(const void* image, std::uint32_t size) {
  const ListPtr list{ZAL_IpcCommand_Decode(image, size)};
  if (!list) return std::nullopt;
  std::vector<Record> records;
  while (const CommandPtr command{ZAL_IpcCommand_Remove(list.get())}) records.push_back(toRecord(*command));
  return records;
}

JsonPtr parsePayload(std::string_view payload) {
  if (!payload.empty() && payload.back() == '\0') payload.remove_suffix(1);
  return JsonPtr{cJSON_ParseWithLength(payload.data(), payload.size())};
}

JsonPtr parseText(const std::string& text) {
  const char* end = text.c_str();
  JsonPtr parsed{cJSON_ParseWithOpts(text.c_str(), &end, 1)};
  if (!parsed) {
    const std::string rest{end};
    throw std::runtime_error{rest.empty() ? "no valid JSON: it ends too early" : "no valid JSON from here: " + rest};
  }
  return parsed;
}

std::string readFile(const std::string& path) {
  std::error_code none;
  if (std::filesystem::is_directory(path, none))
    throw std::runtime_error{"cannot read " + path + ": it is a directory"};
  std::ifstream file{path, std::ios::binary};
  if (!file) throw std::runtime_error{"cannot read " + path + ": " + std::generic_category().message(errno)};
  return {std::istreambuf_iterator<char>{file}, {}};
}

bool isError(const cJSON& payload) {
  return cJSON_IsObject(cJSON_GetObjectItemCaseSensitive(&payload, "error")) != 0;
}

std::string requestPayload(const std::string& text, bool isRaw) {
  JsonPtr data = text.empty() ? nullptr : parseText(text);
  return isRaw || !data ? text : envelope(std::move(data));
}

std::string envelope(JsonPtr data) {
  const MessagePtr message{ZAL_Message_Create()};
  if (!message) throw std::bad_alloc{};
  ZAL_ObjectHandle object = ZAL_Object_CreateFromcJSON(data.get());
  if (object == nullptr) throw std::bad_alloc{};
  static_cast<void>(data.release());  // the object's now, and the object is the message's
  ZAL_Message_SetData(message.get(), object);
  const std::unique_ptr<char, CFree> text{ZAL_Message_DumpOutput(message.get())};
  if (!text) throw std::bad_alloc{};
  return text.get();
}

}  // namespace zalctl
