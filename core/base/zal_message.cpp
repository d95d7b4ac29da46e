// Messages: the record, the range that a request's filter cuts from its data, and the JSON envelope.
// A message is used by one thread at a time.
#include "base/zal_message.hpp"

#include <zal/zal_runtime.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "base/zal_object.hpp"
#include "support/json_node.hpp"
#include "support/log.hpp"
#include "support/memory.hpp"
#include "support/number.hpp"

namespace {

struct DataDestroy {
  void operator()(ZAL_ObjectHandle data) const noexcept {
    ZAL_Object_IsArray(data) != 0 ? ZAL_Array_Destroy(data) : ZAL_Object_Destroy(data);
  }
};
using DataPtr = std::unique_ptr<ZAL_ObjectHandle_, DataDestroy>;

}  // namespace

struct ZAL_MessageHandle_ {
  char name[256] = {};
  std::uint32_t version = 0;
  char optionalParam[16] = {};
  zal::JsonPtr envelope;
  DataPtr data;
  zal::CPtr<std::uint8_t> payload;
  std::uint32_t payloadSize = 0;
  double timestamp = 0;
  const char* filter = nullptr;  ///< borrowed
  std::int32_t errorCode = 0;
  zal::CPtr<char> errorMessage;
  zal::CPtr<char> errorSource;
};

namespace {

using zal::CPtr;
using zal::JsonPtr;

/// The part of a filter that a range cuts: start and count as ZAL_Array_Prune takes them.
struct Range {
  std::int32_t start = -1;
  std::int32_t count = -1;
};

/// What follows the first `mark` in the text; null when it does not occur.
const char* findAfter(const char* text, const char* mark) noexcept {
  const char* found = std::strstr(text, mark);
  return found == nullptr ? nullptr : found + std::strlen(mark);
}

/// A number of a range, whose text ends at `stop` or with the filter; -1 for none and for a negative one.
std::int32_t readBound(const char* text, char stop) noexcept {
  return *text == '\0' || *text == stop || *text == '-' ? -1 : zal::readInt32(text);
}

Range readRange(const char* filter) noexcept {
  const char* text = findAfter(filter, "range=");
  if (text == nullptr) return {};
  const char* count = findAfter(text, ":");
  return {readBound(*text == '"' ? text + 1 : text, ':'), count == nullptr ? -1 : readBound(count, '"')};
}

/// The text of the filter's include part, empty without one; null when memory runs out.
CPtr<char> readInclude(const char* filter) noexcept {
  const char* text = findAfter(filter, "include=");
  return text == nullptr ? zal::copyText("") : zal::copyText({text, std::strcspn(text, "&")});
}

void applyRange(ZAL_ObjectHandle data, const char* filter, const char* function) noexcept {
  const CPtr<char> name = readInclude(filter);
  const DataPtr array{name ? ZAL_Object_GetArray(data, name.get()) : nullptr};
  if (!array) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "invalid range filter\n");
    return;
  }
  const Range range = readRange(filter);
  if (ZAL_Array_Prune(array.get(), range.start, range.count) == 0)
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "failed to apply range filter\n");
}

const char* orEmpty(const char* text) noexcept {
  return text == nullptr ? "" : text;
}

bool addError(const ZAL_MessageHandle_& message) noexcept {
  cJSON* error = cJSON_AddObjectToObject(message.envelope.get(), "error");
  return error != nullptr && cJSON_AddNumberToObject(error, "code", message.errorCode) != nullptr &&
         cJSON_AddStringToObject(error, "source", orEmpty(message.errorSource.get())) != nullptr &&
         cJSON_AddStringToObject(error, "message", orEmpty(message.errorMessage.get())) != nullptr;
}

/// Makes a member that refers to another tree's node show that node as it is now.
void refer(cJSON& member, const cJSON& node) noexcept {
  cJSON shown = node;
  shown.next = member.next;
  shown.prev = member.prev;
  shown.string = member.string;
  shown.type = zal::typeOf(node) | cJSON_IsReference;  // without the flags, which are about the node's own memory
  member = shown;
}

/// The "data" of an earlier print still shows the tree as it was then, and parts of that may be gone.
void renewReferences(const ZAL_MessageHandle_& message) noexcept {
  cJSON none{};
  none.type = cJSON_NULL;
  const cJSON* node = ZAL_Object_GetInternal(message.data.get());
  for (cJSON* member = message.envelope->child; member != nullptr; member = member->next)
    if ((member->type & cJSON_IsReference) != 0) refer(*member, node == nullptr ? none : *node);
}

bool addData(const ZAL_MessageHandle_& message) noexcept {
  cJSON* envelope = message.envelope.get();
  if (message.payloadSize != 0) {
    const CPtr<char> text = zal::base64Text(message.payload.get(), message.payloadSize);
    return cJSON_AddStringToObject(envelope, "data", text.get()) != nullptr;
  }
  const cJSON* node = ZAL_Object_GetInternal(message.data.get());
  if (node == nullptr) return true;
  // Not cJSON_AddItemReferenceToObject, which loses the reference when memory for its key runs out.
  JsonPtr reference{cJSON_CreateNull()};
  if (!reference) return false;
  refer(*reference, *node);
  return zal::addMember(*envelope, "data", std::move(reference));
}

bool addContent(const ZAL_MessageHandle_& message) noexcept {
  cJSON* envelope = message.envelope.get();
  return (message.version == 0 || cJSON_AddNumberToObject(envelope, "version", message.version) != nullptr) &&
         cJSON_AddNumberToObject(envelope, "timestamp", message.timestamp) != nullptr && addData(message);
}

/// Decodes a base64 text into the message's payload. False when it holds no bytes or memory runs out.
bool decodePayload(ZAL_MessageHandle_& message, std::string_view text) noexcept {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) return false;
  const auto length = static_cast<std::uint32_t>(text.size());
  CPtr<std::uint8_t> bytes{static_cast<std::uint8_t*>(std::malloc(text.empty() ? 1 : text.size()))};
  const std::int32_t decoded = bytes ? zbase64_decode(text.data(), length, bytes.get(), length) : 0;
  if (decoded <= 0) return false;
  message.payload = std::move(bytes);
  message.payloadSize = static_cast<std::uint32_t>(decoded);
  return true;
}

}  // namespace

void zal::setMessageFilter(ZAL_MessageHandle message, const char* filter) noexcept {
  if (message != nullptr) message->filter = filter;
}

ZAL_MessageHandle ZAL_Message_Create(void) noexcept {
  std::unique_ptr<ZAL_MessageHandle_> message{new (std::nothrow) ZAL_MessageHandle_{}};
  if (!message) return nullptr;
  message->timestamp = ZAL_GetTimestamp();
  message->envelope.reset(cJSON_CreateObject());
  return message->envelope ? message.release() : nullptr;
}

void ZAL_Message_SetName(ZAL_MessageHandle message, const char* name) noexcept {
  if (message != nullptr) zalstrlcpy(message->name, orEmpty(name), sizeof message->name);
}

const char* ZAL_Message_GetName(ZAL_MessageHandle message) noexcept {
  return message == nullptr ? nullptr : message->name;
}

void ZAL_Message_SetOptionalParam(ZAL_MessageHandle message, const char* text) noexcept {
  if (message != nullptr) zalstrlcpy(message->optionalParam, orEmpty(text), sizeof message->optionalParam);
}

const char* ZAL_Message_GetOptionalParam(ZAL_MessageHandle message) noexcept {
  return message == nullptr ? nullptr : message->optionalParam;
}

void ZAL_Message_SetVersion(ZAL_MessageHandle message, uint32_t version) noexcept {
  if (message != nullptr) message->version = version;
}

const char* ZAL_Message_GetFilter(ZAL_MessageHandle message) noexcept {
  return message == nullptr ? nullptr : message->filter;
}

ZAL_ObjectHandle ZAL_Message_GetData(ZAL_MessageHandle message) noexcept {
  return message == nullptr ? nullptr : message->data.get();
}

void ZAL_Message_SetData(ZAL_MessageHandle message, ZAL_ObjectHandle data) noexcept {
  if (message != nullptr && message->data.get() == data) return;
  DataPtr taken{data};
  if (message == nullptr) return;
  message->data = std::move(taken);
  const char* filter = message->filter;
  if (data != nullptr && filter != nullptr && std::strstr(filter, "range") != nullptr)
    applyRange(data, filter, __func__);
}

void ZAL_Message_SetError(ZAL_MessageHandle message, int32_t code, const char* source, const char* text) noexcept {
  if (message == nullptr) return;
  message->errorCode = code;
  message->errorSource = zal::copyText(orEmpty(source));
  message->errorMessage = zal::copyText(orEmpty(text));
}

void ZAL_Message_SetPayload(ZAL_MessageHandle message, const void* bytes, uint32_t size) noexcept {
  if (message == nullptr) return;
  CPtr<std::uint8_t> copy;
  if (bytes != nullptr && size != 0) copy.reset(static_cast<std::uint8_t*>(std::malloc(size)));
  if (copy) std::memcpy(copy.get(), bytes, size);
  message->payloadSize = copy ? size : 0;
  message->payload = std::move(copy);  // only now: the bytes may be those of the payload that this replaces
}

void ZAL_Message_GetPayload(ZAL_MessageHandle message, uint8_t** bytes, uint32_t* size) noexcept {
  const char* text = message == nullptr ? nullptr : ZAL_Object_GetString(message->data.get(), "data");
  if (text == nullptr) ZAL_LOG(ZAL_LOG_ERROR, "GetPayload unable to find data\n");
  bool isDecoded = false;
  if (text != nullptr) {
    message->payload.reset();
    message->payloadSize = 0;
    isDecoded = decodePayload(*message, text);
  }
  if (bytes != nullptr) *bytes = isDecoded ? message->payload.get() : nullptr;
  if (size != nullptr) *size = isDecoded ? message->payloadSize : 0;
}

char* ZAL_Message_DumpOutput(ZAL_MessageHandle message) noexcept {
  if (message == nullptr) return nullptr;
  renewReferences(*message);
  const bool isComplete = message->errorCode != 0 ? addError(*message) : addContent(*message);
  return isComplete ? zal::printJson(message->envelope.get()).release() : nullptr;
}

void ZAL_Message_Destroy(ZAL_MessageHandle message) noexcept {
  delete message;
}
