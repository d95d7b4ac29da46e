// Adding members: the ZAL_Object_Add functions. Each member is tested with the filter of the tree's top handle first;
// ready-made trees are pruned by it instead.
#include <zal/zal_object.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "base/zal_object.hpp"
#include "base/zal_object/digits.hpp"
#include "base/zal_object/handle.hpp"
#include "base/zal_object/prune.hpp"
#include "support/log.hpp"

namespace {

using zal::JsonPtr;
using zal::makeNumber;
using zal::Strictness;
using zal::object::Graveyard;
using zal::object::Handle;
using zal::object::writableNode;

/// The node that takes a member of that key; null when it has no room for one or the filter rejects it.
cJSON* nodeFor(ZAL_ObjectHandle handle, const char* key, Strictness strictness) noexcept {
  cJSON* node = writableNode(handle);
  return node != nullptr && zal::object::passes(*handle, key, strictness) ? node : nullptr;
}

/// Adds a named member; `make` is called only for one that passes.
template <class Make>
int add(ZAL_ObjectHandle handle, const char* key, Make make) noexcept {
  cJSON* node = nodeFor(handle, key, Strictness::kStrict);
  return node != nullptr && zal::addMember(*node, key, make()) ? 1 : 0;
}

/// The same for the types that an array also takes without a key, as elements.
template <class Make>
int addValue(ZAL_ObjectHandle handle, const char* key, Make make) noexcept {
  if (key != nullptr || zal::object::arrayOf(handle) == nullptr) return add(handle, key, make);
  cJSON* array = writableNode(handle);
  return array != nullptr && zal::addElement(*array, make()) ? 1 : 0;
}

int addNumber(ZAL_ObjectHandle handle, const char* key, double value) noexcept {
  return addValue(handle, key, [value] { return makeNumber(value); });
}

/// The value with six decimals, as raw text of at most 17 characters.
JsonPtr makeSixDecimals(double value) noexcept {
  constexpr std::size_t kLongestText = 17;
  if (!std::isfinite(value)) return makeNumber(value);

  char text[zal::object::kLongestDecimals];
  const char* end = zal::object::writeSixDecimals(text, value);
  std::size_t length = std::min(static_cast<std::size_t>(end - text), kLongestText);
  if (text[length - 1] == '.') --length;  // a cut that leaves the point last would leave no JSON
  text[length] = '\0';
  return JsonPtr{cJSON_CreateRaw(text)};
}

/// Gives a node that has no name yet its key; the name is cJSON's to free.
bool hasName(cJSON& node, const char* key) noexcept {
  if (node.string != nullptr) return true;
  const std::size_t size = std::strlen(key) + 1;
  node.string = static_cast<char*>(cJSON_malloc(size));
  if (node.string != nullptr) std::memcpy(node.string, key, size);
  return node.string != nullptr;
}

/// Adds what the filter leaves of a tree; the rest, or all of it, is buried.
void addTree(Handle& handle, const char* key, JsonPtr tree, Graveyard& graveyard) noexcept {
  cJSON* target = writableNode(&handle);
  const zal::object::Filter* filter = zal::object::filterOf(handle);
  if (!tree || target == nullptr || key == nullptr || filter == nullptr || !hasName(*tree, key)) {
    graveyard.bury(std::move(tree));
    return;
  }
  cJSON* node = tree.release();
  if (!zal::object::pruneNode(*filter, *node, *node, nullptr, graveyard)) return;
  if (!cJSON_AddItemToObject(target, key, node)) graveyard.bury(JsonPtr{node});
}

ZAL_ObjectHandle addContainer(ZAL_ObjectHandle handle, const char* key, std::uint8_t kind,
                              const char* function) noexcept {
  cJSON* node = nodeFor(handle, key, Strictness::kLoose);
  if (node == nullptr) return nullptr;
  return zal::object::createSub(*handle, kind, function, [node, key](JsonPtr item) noexcept {
    return zal::addMember(*node, key, std::move(item));
  });
}

}  // namespace

int ZAL_Object_AddString(ZAL_ObjectHandle handle, const char* key, const char* text) noexcept {
  return add(handle, key, [text] { return JsonPtr{cJSON_CreateString(text)}; });
}

int ZAL_Object_AddInt32(ZAL_ObjectHandle handle, const char* key, int32_t value) noexcept {
  return addNumber(handle, key, value);
}

int ZAL_Object_AddUint32(ZAL_ObjectHandle handle, const char* key, uint32_t value) noexcept {
  return addNumber(handle, key, value);
}

int ZAL_Object_AddInt64(ZAL_ObjectHandle handle, const char* key, int64_t value) noexcept {
  return addNumber(handle, key, static_cast<double>(value));
}

int ZAL_Object_AddUint64(ZAL_ObjectHandle handle, const char* key, uint64_t value) noexcept {
  return addNumber(handle, key, static_cast<double>(value));
}

int ZAL_Object_AddDouble(ZAL_ObjectHandle handle, const char* key, double value) noexcept {
  if (key != nullptr && zal::object::arrayOf(handle) != nullptr) return addNumber(handle, key, value);
  return addValue(handle, key, [value] { return makeSixDecimals(value); });
}

int ZAL_Object_AddBool(ZAL_ObjectHandle handle, const char* key, int value) noexcept {
  return addValue(handle, key, [value] { return JsonPtr{cJSON_CreateBool(value != 0)}; });
}

int ZAL_Object_AddNull(ZAL_ObjectHandle handle, const char* key) noexcept {
  return add(handle, key, [] { return JsonPtr{cJSON_CreateNull()}; });
}

int ZAL_Object_AddBlob(ZAL_ObjectHandle handle, const char* key, const void* bytes, uint32_t length) noexcept {
  return add(handle, key, [=] { return JsonPtr{cJSON_CreateString(zal::base64Text(bytes, length).get())}; });
}

void ZAL_Object_AddSecureBlob(ZAL_ObjectHandle, const char*, const void*, uint32_t) noexcept {
  ZAL_LOG(ZAL_LOG_WARNING, "\n Security not supported!!!\n");
}

ZAL_ObjectHandle ZAL_Object_AddObject(ZAL_ObjectHandle handle, const char* key) noexcept {
  return addContainer(handle, key, zal::object::kObjectKind, __func__);
}

ZAL_ObjectHandle ZAL_Object_AddArray(ZAL_ObjectHandle handle, const char* key) noexcept {
  return addContainer(handle, key, zal::object::kArrayKind, __func__);
}

void ZAL_Object_AddJson(ZAL_ObjectHandle handle, const char* key, cJSON* node) noexcept {
  if (handle != nullptr && zal::object::isTreeOf(*handle, node)) return;
  JsonPtr tree{node};
  if (handle == nullptr) return;
  Graveyard graveyard;
  addTree(*handle, key, std::move(tree), graveyard);
}

void ZAL_Object_AppendObject(ZAL_ObjectHandle parent, const char* key, ZAL_ObjectHandle child) noexcept {
  if (parent == nullptr || child == nullptr || !zal::object::isTop(*child) || &zal::object::topOf(*parent) == child)
    return;
  Graveyard graveyard;
  addTree(*parent, key, JsonPtr{child->item}, graveyard);
  graveyard.forget(*child);
  zal::object::adopt(*parent, *child);
}
