// The adds: objects, arrays and the typed leaves. Which members may be added is decided in filter.cpp.
#include <zal/zal_json.h>

#include <utility>

#include "base/zal_json/filter.hpp"
#include "base/zal_json/report.hpp"
#include "support/json_node.hpp"
#include "support/memory.hpp"

namespace {

using zal::JsonPtr;
using zal::Strictness;
using zal::json::Place;
using zal::json::report;

constexpr const char* kNoObject = "Unable to create JSON object";

/// Adds a named member, inside a new object when the parent is an array. `failure` is what is reported.
cJSON* addNamed(const Place& place, JsonPtr item, const char* failure) noexcept {
  cJSON* added = item.get();
  const bool isElement = cJSON_IsArray(place.parent) != 0;
  JsonPtr wrapper{isElement ? cJSON_CreateObject() : nullptr};
  if (isElement && !wrapper) {
    report(kNoObject);
    return nullptr;
  }
  cJSON* object = isElement ? wrapper.get() : place.parent;
  const bool isAdded = place.parent != nullptr && zal::isWritable(*place.parent) &&
                       zal::addMember(*object, place.key, std::move(item)) &&
                       (!isElement || zal::addElement(*place.parent, std::move(wrapper)));
  if (!isAdded) report(failure);
  return isAdded ? added : nullptr;
}

void appendBare(cJSON& array, JsonPtr item) noexcept {
  if (zal::isReference(array) || !zal::addElement(array, std::move(item)))
    report("Unable to create JSON arrayItem object");
}

/// Adds what `make` gives, which is called only for a member that passes.
template <class Make>
cJSON* addContainer(const Place& place, Make make, const char* failure) noexcept {
  return passes(place, Strictness::kLoose) ? addNamed(place, JsonPtr{make()}, failure) : nullptr;
}

/// The same for a leaf.
template <class Make>
cJSON* addLeaf(const Place& place, Make make, const char* failure) noexcept {
  if (!passes(place, Strictness::kStrict)) return nullptr;
  if (place.key != nullptr || !cJSON_IsArray(place.parent)) return addNamed(place, JsonPtr{make()}, failure);
  appendBare(*place.parent, JsonPtr{make()});
  return nullptr;  // also when it was appended: that is the contract
}

}  // namespace

cJSON* json_AddObject(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key) noexcept {
  return addContainer({parent, filterA, filterB, top, key}, cJSON_CreateObject, kNoObject);
}

cJSON* json_AddArray(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key) noexcept {
  return addContainer({parent, filterA, filterB, top, key}, cJSON_CreateArray, "Unable to create JSON array");
}

cJSON* json_AddArrayElement(cJSON* array) noexcept {
  JsonPtr object{cJSON_CreateObject()};
  cJSON* added = object.get();
  const bool isAdded = cJSON_IsArray(array) && !zal::isReference(*array) && zal::addElement(*array, std::move(object));
  if (!isAdded) report(kNoObject);
  return isAdded ? added : nullptr;
}

cJSON* json_AddString(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                      const char* text) noexcept {
  const auto make = [text] { return cJSON_CreateString(text); };
  return addLeaf({parent, filterA, filterB, top, key}, make, "Unable to create JSON string");
}

cJSON* json_AddNumber(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                      double value) noexcept {
  const auto make = [value] { return zal::makeNumber(value); };
  return addLeaf({parent, filterA, filterB, top, key}, make, "Unable to create JSON number");
}

cJSON* json_AddBool(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                    uint8_t value) noexcept {
  const auto make = [value] { return cJSON_CreateBool(value != 0 ? 1 : 0); };
  return addLeaf({parent, filterA, filterB, top, key}, make, "Unable to create JSON bool");
}

cJSON* json_AddNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key) noexcept {
  return addLeaf({parent, filterA, filterB, top, key}, cJSON_CreateNull, "Unable to create JSON Null");
}

cJSON* json_AddStringOrNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key,
                            const char* text) noexcept {
  const bool isEmpty = text == nullptr || *text == '\0';
  return isEmpty ? json_AddNull(parent, filterA, filterB, top, key)
                 : json_AddString(parent, filterA, filterB, top, key, text);
}

cJSON* json_AddCountingNumberOrNull(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                                    const char* key, int32_t count) noexcept {
  return count < 1 ? json_AddNull(parent, filterA, filterB, top, key)
                   : json_AddNumber(parent, filterA, filterB, top, key, count);
}
