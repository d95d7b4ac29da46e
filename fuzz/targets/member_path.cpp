// Any member path into any document: every getter must say the same about the member that it leads to.
#include <zal/zal_object.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "support/fuzz.hpp"
#include "support/json.hpp"

namespace {

using zal::fuzz::Buffer;
using zal::fuzz::Input;
using zal::fuzz::Object;
using zal::fuzz::Text;

template <class Value>
std::optional<Value> get(int (*getter)(ZAL_ObjectHandle, const char*, Value*), ZAL_ObjectHandle object,
                         const char* path) {
  Value value{};
  return getter(object, path, &value) != 0 ? std::optional{value} : std::nullopt;
}

template <class Value>
std::optional<Value> get(int (*getter)(ZAL_ObjectHandle, std::int32_t, Value*), ZAL_ObjectHandle array,
                         std::int32_t index) {
  Value value{};
  return getter(array, index, &value) != 0 ? std::optional{value} : std::nullopt;
}

/// The same bits in two's complement.
template <class Signed, class Unsigned>
bool areSame(std::optional<Signed> one, std::optional<Unsigned> other) {
  return one.has_value() == other.has_value() && (!one || static_cast<Unsigned>(*one) == *other);
}

void readMember(ZAL_ObjectHandle object, const char* path) {
  const Object view{ZAL_Object_GetObject(object, path)};
  const cJSON* const node = ZAL_Object_GetInternal(view.get());
  const bool isNumeric = cJSON_IsNumber(node) || cJSON_IsString(node);
  const auto whole = get(ZAL_Object_GetInt64, object, path);
  const auto low = get(ZAL_Object_GetInt32, object, path);
  FUZZ_CHECK(whole.has_value() == isNumeric && low.has_value() == isNumeric);
  FUZZ_CHECK(areSame(whole, get(ZAL_Object_GetUint64, object, path)));
  FUZZ_CHECK(areSame(low, get(ZAL_Object_GetUint32, object, path)));
  if (cJSON_IsNumber(node)) FUZZ_CHECK(static_cast<std::uint32_t>(*low) == static_cast<std::uint32_t>(*whole));
  FUZZ_CHECK(get(ZAL_Object_GetDouble, object, path).has_value() == isNumeric);
  const auto truth = get(ZAL_Object_GetBool, object, path);
  FUZZ_CHECK(cJSON_IsString(node) || truth.has_value() == (cJSON_IsBool(node) != 0));
  FUZZ_CHECK(ZAL_Object_GetString(object, path) == cJSON_GetStringValue(node));
  const Object array{ZAL_Object_GetArray(object, path)};
  if (*path != '\0') FUZZ_CHECK((array != nullptr) == (cJSON_IsArray(node) != 0));
}

void readString(ZAL_ObjectHandle array, std::int32_t index, const cJSON* element, std::size_t size) {
  const Buffer buffer{size};
  const int isWhole = ZAL_Array_GetString(array, index, buffer.data(), size);
  const char* const text = cJSON_GetStringValue(element);
  FUZZ_CHECK((isWhole != 0) == (text != nullptr && std::strlen(text) < size));
  if (text != nullptr && size != 0) FUZZ_CHECK(buffer.text() == std::string{text}.substr(0, size - 1));
}

void readElement(ZAL_ObjectHandle array, std::int32_t index, std::size_t size) {
  const cJSON* const node = ZAL_Object_GetInternal(array);
  const cJSON* const element = cJSON_IsArray(node) && index >= 0 ? cJSON_GetArrayItem(node, index) : nullptr;
  FUZZ_CHECK(get(ZAL_Array_GetInt32, array, index).has_value() == (cJSON_IsNumber(element) != 0));
  static_cast<void>(get(ZAL_Array_GetDouble, array, index));
  static_cast<void>(get(ZAL_Array_GetBool, array, index));
  readString(array, index, element, size);
  const Object object{ZAL_Array_GetObject(array, index)};
  const Object inner{ZAL_Array_GetArray(array, index)};
  FUZZ_CHECK((object != nullptr) == (cJSON_IsObject(element) != 0));
  FUZZ_CHECK((inner != nullptr) == (cJSON_IsArray(element) != 0));
}

/// A copy of a part of an array is as long as it was asked for, and the source stays as it is.
void copyPart(ZAL_ObjectHandle array, std::int32_t start, std::int32_t count) {
  std::uint32_t before = 0;
  if (ZAL_Array_GetSize(array, &before) == 0) return;
  const Object part{ZAL_Array_GetSubArray(array, start, count)};
  std::uint32_t after = 0;
  std::uint32_t size = 0;
  FUZZ_CHECK(ZAL_Array_GetSize(array, &after) != 0 && after == before);
  if (!part) return;
  FUZZ_CHECK(ZAL_Array_GetSize(part.get(), &size) != 0);
  FUZZ_CHECK(size <= before);
  FUZZ_CHECK(count < 0 || size == std::min(before, static_cast<std::uint32_t>(count)));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const auto index = static_cast<std::int8_t>(input.byte());
  const auto count = static_cast<std::int8_t>(input.byte());
  const Text path = input.text();
  const Object document = zal::fuzz::parsedObject(input.rest());
  if (!document) return 0;
  readMember(document.get(), path.get());
  const Object array{ZAL_Object_GetArray(document.get(), path.get())};
  readElement(array.get(), index, static_cast<std::uint8_t>(count));
  copyPart(array.get(), index, count);
  return 0;
}
