// What goes over the socket, as values of C++: command records in images, and the JSON in their payloads.
// Nothing here keeps state; any thread.
#pragma once

#include <cjson/cJSON.h>
#include <zal/zal_ipccommand.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zalctl {

struct CFree {
  void operator()(void* block) const noexcept { std::free(block); }
};
struct JsonDelete {
  void operator()(cJSON* node) const noexcept { cJSON_Delete(node); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

/// The longest service or method name that a record carries.
inline constexpr std::size_t kMaxName = sizeof(ZAL_IpcCommand::name) - 1;

/// One command record. `payload` holds any bytes; an empty one is no payload.
struct Record {
  std::int32_t code = 0;
  std::string service;
  std::string name;
  std::string payload;
  std::uint16_t requestId = 0;
};

/// The kinds of messages, as commands and filters name them: a word for each code, and two for what holds no record.
inline constexpr std::string_view kEmpty = "empty";          // an image without records: no such method
inline constexpr std::string_view kMalformed = "malformed";  // no image of records
struct Kind {
  std::int32_t code;
  std::string_view name;
};
inline constexpr std::array<Kind, 9> kKinds{{{ZAL_IPC_CMD_SUBSCRIBE, "subscribe"},
                                             {ZAL_IPC_CMD_RESPONSE, "response"},
                                             {ZAL_IPC_CMD_EVENT, "event"},
                                             {ZAL_IPC_CMD_REQUEST, "request"},
                                             {ZAL_IPC_CMD_NOTIFY, "notify"},
                                             {ZAL_IPC_CMD_GET_CONFIG, "get-config"},
                                             {ZAL_IPC_CMD_CONFIG, "config"},
                                             {ZAL_IPC_CMD_GATEWAY_REQUEST, "gateway-request"},
                                             {ZAL_IPC_CMD_GATEWAY_RESPONSE, "gateway-response"}}};
/// The kind of a record; "code N" for a code that has no name.
[[nodiscard]] std::string kindOf(const Record& record);

/// One image, in memory that the transport can take over.
struct Image {
  std::unique_ptr<void, CFree> bytes;
  std::uint32_t size = 0;
};

/// An image of one record; without bytes when memory runs out.
[[nodiscard]] Image encode(const Record& record);
/// The records of an image in the order in which the peer added them; nothing when it is no image of records.
[[nodiscard]] std::optional<std::vector<Record>> decode(const void* image, std::uint32_t size);

/// A payload as JSON, null when it is none. The bytes need not end in a NUL; one that they end in is left out.
[[nodiscard]] JsonPtr parsePayload(std::string_view payload);
/// The whole content of a file. Throws std::runtime_error that names the file and the reason.
[[nodiscard]] std::string readFile(const std::string& path);
/// A text that somebody wrote: JSON and nothing after it. Throws std::runtime_error that tells where it goes wrong.
[[nodiscard]] JsonPtr parseText(const std::string& text);
/// True when an answer's payload is the method's own error instead of data.
[[nodiscard]] bool isError(const cJSON& payload);
/// The payload of a request: the data in a message's envelope, {"timestamp":...,"data":...}.
[[nodiscard]] std::string envelope(JsonPtr data);
/// The payload of a request from what a person wrote: nothing, JSON for an envelope, or the text as it is, JSON too.
[[nodiscard]] std::string requestPayload(const std::string& text, bool isRaw);

}  // namespace zalctl
