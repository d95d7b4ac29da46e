// The front door of the data model: handles over JSON trees, made, printed, asked about their filter, and released.
// Its rooms: members (adding), getters and path (reading by member path), array and elements, filter and prune.
// A tree and its handles are used by one thread at a time.
#include "base/zal_object.hpp"

#include <zal/zal_message.h>
#include <zal/zal_object.h>
#include <zal/zal_runtime.h>

#include <cstdint>
#include <limits>

#include "base/zal_object/handle.hpp"
#include "support/log.hpp"

namespace zal {

CPtr<char> base64Text(const void* bytes, std::uint32_t length) noexcept {
  const std::uint64_t encoded = (std::uint64_t{length} + 2) / 3 * 4;
  if ((bytes == nullptr && length != 0) || encoded >= std::numeric_limits<std::int32_t>::max()) return nullptr;
  const auto capacity = static_cast<std::uint32_t>(encoded);
  CPtr<char> text = allocateBytes(std::size_t{capacity} + 1);
  const std::int32_t written = text ? zbase64_encode(bytes, length, text.get(), capacity) : -1;
  if (written < 0) return nullptr;
  text.get()[written] = '\0';
  return text;
}

}  // namespace zal

namespace {

using zal::JsonPtr;
using zal::object::createTop;
using zal::object::kObjectKind;
using zal::object::kOtherKind;

}  // namespace

ZAL_ObjectHandle ZAL_Object_Create(void) noexcept {
  return createTop(kObjectKind, JsonPtr{cJSON_CreateObject()}, nullptr, __func__);
}

ZAL_ObjectHandle ZAL_Object_CreateFromJson(const char* text, size_t length) noexcept {
  return createTop(kOtherKind, JsonPtr{cJSON_ParseWithLength(text, length)}, nullptr, __func__);
}

ZAL_ObjectHandle ZAL_Object_CreateFromcJSON(cJSON* node) noexcept {
  return zal::object::wrapTree(kOtherKind, node, nullptr, __func__);
}

ZAL_ObjectHandle ZAL_TelemetryObject_Create(ZAL_MessageHandle message) noexcept {
  return createTop(kOtherKind, JsonPtr{cJSON_CreateObject()}, ZAL_Message_GetFilter(message), __func__);
}

cJSON* ZAL_Object_GetInternal(ZAL_ObjectHandle handle) noexcept {
  return zal::object::nodeOf(handle);
}

int ZAL_Object_IsArray(ZAL_ObjectHandle handle) noexcept {
  return handle != nullptr && handle->kind == zal::object::kArrayKind ? 1 : 0;
}

char* ZAL_Object_DumpOutput(ZAL_ObjectHandle handle) noexcept {
  if (handle == nullptr) ZAL_LOG(ZAL_LOG_ERROR, "Invalid input to %s\n", __func__);
  return zal::printJson(zal::object::nodeOf(handle)).release();
}

void ZAL_Object_Destroy(ZAL_ObjectHandle handle) noexcept {
  if (handle == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Invalid input to %s\n", __func__);
    return;
  }
  if (handle->parent != nullptr) return;  // it belongs to that handle
  if (zal::object::isTop(*handle) && ZAL_Object_IsArray(handle) == 0) cJSON_Delete(handle->item);
  zal::object::freeRecords(handle);
}

int ZAL_Object_CheckFilter(ZAL_ObjectHandle handle, const char* key, int strictness) noexcept {
  return checkFilter(handle, key, strictness);
}

int checkFilter(ZAL_ObjectHandle handle, const char* key, int strictness) noexcept {
  if (zal::object::nodeOf(handle) == nullptr) return 0;
  return zal::object::passes(*handle, key, zal::strictnessOf(strictness)) ? 1 : 0;
}
