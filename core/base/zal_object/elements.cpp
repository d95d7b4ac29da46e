// Reading elements by their index: the ZAL_Array_Get functions. Members by path are read in getters.cpp.
#include <zal/zal_object.h>
#include <zal/zal_runtime.h>

#include "base/zal_object/handle.hpp"
#include "base/zal_object/values.hpp"
#include "support/log.hpp"

namespace {

using zal::object::arrayOf;

constexpr const char* kIsNoArray = "handle is not an array\n";
constexpr const char* kNotAnArray = "handle not an array\n";

/// The array that a getter with a result reads; null, after a log line, when the call makes no sense.
const cJSON* findArray(ZAL_ObjectHandle handle, bool hasResult, const char* noArray, const char* function) noexcept {
  const cJSON* array = arrayOf(handle);
  const bool isValid = handle != nullptr && hasResult;
  if (!isValid || array == nullptr) ZAL_LOG_AS(ZAL_LOG_ERROR, function, "%s", isValid ? noArray : "invalid handle\n");
  return isValid ? array : nullptr;
}

/// Stores what `read` finds in the element, if there is one and it finds something.
template <class Value, class Read>
int get(ZAL_ObjectHandle handle, int32_t index, Value* result, const char* function, Read read) noexcept {
  const cJSON* array = findArray(handle, result != nullptr, kNotAnArray, function);
  const cJSON* element = array == nullptr ? nullptr : cJSON_GetArrayItem(array, index);
  if (element == nullptr) return 0;
  const auto value = read(*element);
  if (!value) return 0;
  *result = *value;
  return 1;
}

/// A view of an element for which `isWanted` holds.
ZAL_ObjectHandle viewOf(ZAL_ObjectHandle handle, int32_t index, cJSON_bool (*isWanted)(const cJSON*),
                        const char* function) noexcept {
  const cJSON* array = arrayOf(handle);
  if (array == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "%s", kIsNoArray);
    return nullptr;
  }
  cJSON* element = cJSON_GetArrayItem(array, index);
  if (element == nullptr) return nullptr;
  if (!isWanted(element)) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "failed to retrieve item\n");
    return nullptr;
  }
  return zal::object::createView(*handle, element, function);
}

}  // namespace

int ZAL_Array_GetSize(ZAL_ObjectHandle handle, uint32_t* size) noexcept {
  const cJSON* array = findArray(handle, size != nullptr, kIsNoArray, __func__);
  if (array == nullptr) return 0;
  *size = static_cast<uint32_t>(cJSON_GetArraySize(array));
  return 1;
}

int ZAL_Array_GetInt32(ZAL_ObjectHandle handle, int32_t index, int32_t* value) noexcept {
  return get(handle, index, value, __func__, [](const cJSON& element) noexcept {
    if (cJSON_IsNumber(&element)) return zal::object::int32Of(element);
    ZAL_LOG_AS(ZAL_LOG_ERROR, "ZAL_Array_GetInt32", "Item is not a number\n");
    return std::optional<std::int32_t>{};
  });
}

int ZAL_Array_GetDouble(ZAL_ObjectHandle handle, int32_t index, double* value) noexcept {
  return get(handle, index, value, __func__, zal::object::doubleOf);
}

int ZAL_Array_GetBool(ZAL_ObjectHandle handle, int32_t index, uint8_t* value) noexcept {
  return get(handle, index, value, __func__, [](const cJSON& element) noexcept -> std::optional<std::uint8_t> {
    if (cJSON_IsNumber(&element)) return zal::toInt64(element.valuedouble) != 0 ? 1 : 0;
    return zal::object::boolOf(element);
  });
}

int ZAL_Array_GetString(ZAL_ObjectHandle handle, int32_t index, char* buffer, size_t size) noexcept {
  const cJSON* element = cJSON_GetArrayItem(findArray(handle, buffer != nullptr, kIsNoArray, __func__), index);
  if (element == nullptr) return 0;
  const char* text = cJSON_GetStringValue(element);
  if (text == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "Item is not a string\n");
    return 0;
  }
  if (zalstrlcpy(buffer, text, size) < size) return 1;
  ZAL_LOG(ZAL_LOG_ERROR, "insufficient buffer size\n");
  return 0;
}

ZAL_ObjectHandle ZAL_Array_GetObject(ZAL_ObjectHandle handle, int32_t index) noexcept {
  return viewOf(handle, index, cJSON_IsObject, __func__);
}

ZAL_ObjectHandle ZAL_Array_GetArray(ZAL_ObjectHandle handle, int32_t index) noexcept {
  return viewOf(handle, index, cJSON_IsArray, __func__);
}
