// Reading members by their path: the ZAL_Object_Get functions. Elements by index are read in elements.cpp.
#include <zal/zal_object.h>

#include <optional>

#include "base/zal_object/handle.hpp"
#include "base/zal_object/path.hpp"
#include "base/zal_object/values.hpp"
#include "support/log.hpp"

namespace {

using zal::object::getPathObject;
using zal::object::nodeOf;

bool isEmpty(const char* path) noexcept {
  return path == nullptr || *path == '\0';
}

/// The member that a typed getter reads; null when there is none, or when the call makes no sense, which is logged.
const cJSON* findMember(ZAL_ObjectHandle handle, const char* path, bool hasResult, const char* function) noexcept {
  cJSON* node = nodeOf(handle);
  if (node == nullptr || !hasResult) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Invalid handle\n");
    return nullptr;
  }
  if (isEmpty(path)) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "invalid key\n");
    return nullptr;
  }
  return getPathObject(node, path);
}

/// Stores what `read` finds in the member, if it finds something.
template <class Value, class Read>
int get(ZAL_ObjectHandle handle, const char* path, Value* result, const char* function, Read read) noexcept {
  const cJSON* member = findMember(handle, path, result != nullptr, function);
  if (member == nullptr) return 0;
  const auto value = read(*member);
  if (!value) return 0;
  *result = static_cast<Value>(*value);
  return 1;
}

}  // namespace

int ZAL_Object_GetUint64(ZAL_ObjectHandle handle, const char* path, uint64_t* value) noexcept {
  return get(handle, path, value, __func__, zal::object::int64Of);
}

int ZAL_Object_GetInt64(ZAL_ObjectHandle handle, const char* path, int64_t* value) noexcept {
  return get(handle, path, value, __func__, zal::object::int64Of);
}

int ZAL_Object_GetUint32(ZAL_ObjectHandle handle, const char* path, uint32_t* value) noexcept {
  return get(handle, path, value, __func__, zal::object::int32Of);
}

int ZAL_Object_GetInt32(ZAL_ObjectHandle handle, const char* path, int32_t* value) noexcept {
  return get(handle, path, value, __func__, zal::object::int32Of);
}

int ZAL_Object_GetDouble(ZAL_ObjectHandle handle, const char* path, double* value) noexcept {
  return get(handle, path, value, __func__, zal::object::doubleOf);
}

int ZAL_Object_GetBool(ZAL_ObjectHandle handle, const char* path, uint8_t* value) noexcept {
  return get(handle, path, value, __func__, zal::object::boolOf);
}

const char* ZAL_Object_GetString(ZAL_ObjectHandle handle, const char* path) noexcept {
  return cJSON_GetStringValue(findMember(handle, path, true, __func__));
}

ZAL_ObjectHandle ZAL_Object_GetObject(ZAL_ObjectHandle handle, const char* path) noexcept {
  cJSON* node = nodeOf(handle);
  if (node == nullptr || isEmpty(path)) {
    ZAL_LOG(ZAL_LOG_ERROR, "%s", node == nullptr ? "invalid ZAL_ObjectHandle\n" : "invalid key\n");
    return nullptr;
  }
  cJSON* member = getPathObject(node, path);
  return member == nullptr ? nullptr : zal::object::createView(*handle, member, __func__);
}

ZAL_ObjectHandle ZAL_Object_GetArray(ZAL_ObjectHandle handle, const char* path) noexcept {
  cJSON* node = nodeOf(handle);
  if (node == nullptr) {
    ZAL_LOG(ZAL_LOG_ERROR, "invalid ZAL_ObjectHandle\n");
    return nullptr;
  }
  cJSON* member = isEmpty(path) ? node : getPathObject(node, path);
  if (member == nullptr) return nullptr;
  if (!cJSON_IsArray(member)) {
    ZAL_LOG(ZAL_LOG_ERROR, "requested item is not an array\n");
    return nullptr;
  }
  return zal::object::createView(*handle, member, __func__);
}
