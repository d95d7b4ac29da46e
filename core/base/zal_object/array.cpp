// Array handles: made, printed and released, filled at their end, and cut down to a run of elements. Appended elements
// pass no filter; the members of an appended object do. Elements are read in elements.cpp.
#include <zal/zal_message.h>
#include <zal/zal_object.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "base/zal_object.hpp"
#include "base/zal_object/handle.hpp"
#include "base/zal_object/prune.hpp"
#include "support/log.hpp"

namespace {

using zal::JsonPtr;
using zal::object::arrayOf;
using zal::object::Graveyard;
using zal::object::Handle;
using zal::object::kArrayKind;

/// The handle's array when elements can be added to it and taken from it.
cJSON* writableArray(const Handle* handle) noexcept {
  cJSON* array = arrayOf(handle);
  return array != nullptr && !zal::isReference(*array) ? array : nullptr;
}

int append(ZAL_ObjectHandle handle, JsonPtr element) noexcept {
  cJSON* array = writableArray(handle);
  return array != nullptr && zal::addElement(*array, std::move(element)) ? 1 : 0;
}

ZAL_ObjectHandle appendContainer(ZAL_ObjectHandle handle, std::uint8_t kind, const char* function) noexcept {
  cJSON* array = writableArray(handle);
  if (array == nullptr) return nullptr;
  return zal::object::createSub(*handle, kind, function,
                                [array](JsonPtr item) noexcept { return zal::addElement(*array, std::move(item)); });
}

/// Cuts off every element from `first` up to, not including, `last`; null stands for the end.
void cutElements(cJSON& array, cJSON* first, const cJSON* last, Graveyard& graveyard) noexcept {
  while (first != last) {
    cJSON* next = first->next;
    graveyard.bury(JsonPtr{cJSON_DetachItemViaPointer(&array, first)});
    first = next;
  }
}

struct Run {
  std::int32_t first;
  std::int32_t count;
};

/// The elements that a start and a count keep of `size`; empty, after a log line, when they name none that are there.
std::optional<Run> runOf(std::int32_t size, std::int32_t start, std::int32_t count, const char* function) noexcept {
  if (start >= size) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "array start index: %d, out of bounds: %d\n", start, size);
    return std::nullopt;
  }
  if (start < 0) {
    const std::int32_t kept = count < 0 ? size : std::min(count, size);
    return Run{size - kept, kept};
  }
  if (std::int64_t{start} + count > size) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "invalid input: arraySize: %d, startIndex: %d, numElements: %d\n", size, start,
               count);
    return std::nullopt;
  }
  return Run{start, count < 0 ? size - start : count};
}

/// A top handle over a copy that was printed and parsed again.
ZAL_ObjectHandle duplicateArray(ZAL_ObjectHandle handle) noexcept {
  const zal::CPtr<char> text = zal::printJson(zal::object::nodeOf(handle));
  JsonPtr copy{text ? cJSON_Parse(text.get()) : nullptr};
  return zal::object::createTop(kArrayKind, std::move(copy), nullptr, __func__);
}

}  // namespace

ZAL_ObjectHandle ZAL_Array_Create(void) noexcept {
  return zal::object::createTop(kArrayKind, JsonPtr{cJSON_CreateArray()}, nullptr, __func__);
}

ZAL_ObjectHandle ZAL_TelemetryArray_Create(ZAL_MessageHandle message) noexcept {
  return zal::object::createTop(kArrayKind, JsonPtr{cJSON_CreateArray()}, ZAL_Message_GetFilter(message), __func__);
}

char* ZAL_Array_DumpOutput(ZAL_ObjectHandle handle) noexcept {
  if (handle == nullptr) ZAL_LOG(ZAL_LOG_ERROR, "Invalid input to %s\n", __func__);
  return zal::printJson(zal::object::nodeOf(handle)).release();
}

void ZAL_Array_Destroy(ZAL_ObjectHandle handle) noexcept {
  if (handle == nullptr || handle->parent != nullptr) return;
  if (zal::object::isTop(*handle)) cJSON_Delete(handle->item);
  zal::object::freeRecords(handle);
}

ZAL_ObjectHandle ZAL_Array_GetSubArray(ZAL_ObjectHandle handle, int32_t start, int32_t count) noexcept {
  ZAL_ObjectHandle copy = duplicateArray(handle);
  if (copy == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "array duplication failure\n");
    return nullptr;
  }
  if (ZAL_Array_Prune(copy, start, count) == 0) {
    ZAL_Array_Destroy(copy);
    ZAL_LOG(ZAL_LOG_ERROR, "failed to prune array\n");
    return nullptr;
  }
  return copy;
}

int ZAL_Array_Prune(ZAL_ObjectHandle handle, int32_t start, int32_t count) noexcept {
  cJSON* array = writableArray(handle);
  if (array == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "handle is not an array\n");
    return 0;
  }
  const auto run = runOf(cJSON_GetArraySize(array), start, count, __func__);
  if (!run) return 0;

  Graveyard graveyard;
  cutElements(*array, array->child, cJSON_GetArrayItem(array, run->first), graveyard);
  cutElements(*array, cJSON_GetArrayItem(array, run->count), nullptr, graveyard);
  // What stands below the array was made through its handle; a view does not know those handles, its tree does.
  const bool isView = handle->root == nullptr && handle->parent == nullptr;
  graveyard.forget(isView ? *handle->tree : *handle);
  return 1;
}

int ZAL_Array_AddString(ZAL_ObjectHandle handle, const char* text) noexcept {
  return append(handle, JsonPtr{cJSON_CreateString(text)});
}

int ZAL_Array_AddNumber(ZAL_ObjectHandle handle, double value) noexcept {
  return append(handle, zal::makeNumber(value));
}

int ZAL_Array_AddInt32(ZAL_ObjectHandle handle, int32_t value) noexcept {
  return ZAL_Array_AddNumber(handle, value);
}

int ZAL_Array_AddUint32(ZAL_ObjectHandle handle, uint32_t value) noexcept {
  return ZAL_Array_AddNumber(handle, value);
}

int ZAL_Array_AddInt64(ZAL_ObjectHandle handle, int64_t value) noexcept {
  return ZAL_Array_AddNumber(handle, static_cast<double>(value));
}

int ZAL_Array_AddUint64(ZAL_ObjectHandle handle, uint64_t value) noexcept {
  return ZAL_Array_AddNumber(handle, static_cast<double>(value));
}

int ZAL_Array_AddDouble(ZAL_ObjectHandle handle, double value) noexcept {
  return ZAL_Array_AddNumber(handle, value);
}

int ZAL_Array_AddBool(ZAL_ObjectHandle handle, int value) noexcept {
  return append(handle, JsonPtr{cJSON_CreateBool(value != 0)});
}

int ZAL_Array_AddJson(ZAL_ObjectHandle handle, cJSON* node) noexcept {
  if (handle != nullptr && zal::object::isTreeOf(*handle, node)) return 0;
  return append(handle, JsonPtr{node});
}

void ZAL_Array_AddBlob(ZAL_ObjectHandle handle, const void* bytes, uint32_t length) noexcept {
  append(handle, JsonPtr{cJSON_CreateString(zal::base64Text(bytes, length).get())});
}

ZAL_ObjectHandle ZAL_Array_AddObject(ZAL_ObjectHandle handle) noexcept {
  return appendContainer(handle, zal::object::kObjectKind, __func__);
}

ZAL_ObjectHandle ZAL_Array_AddArray(ZAL_ObjectHandle handle) noexcept {
  return appendContainer(handle, kArrayKind, __func__);
}
