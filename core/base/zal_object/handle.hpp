// The handle record, and what the rooms of the data model share about it: how one is made, where it stands in its tree,
// and what may be done to its node. A tree and its handles are used by one thread at a time.
#pragma once

#include <cjson/cJSON.h>
#include <zal/zal_object.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "base/zal_object/filter.hpp"
#include "support/json_node.hpp"
#include "support/memory.hpp"

struct ZAL_ObjectHandle_ {
  std::uint8_t kind = 0;
  ZAL_ObjectHandle_* root = nullptr;  ///< the handle itself: a top handle; null: a view, or a handle made through one
  cJSON* item = nullptr;              ///< null: the node was pruned away, or none was given
  const char* filter = nullptr;       ///< borrowed
  ZAL_ObjectHandle_* next = nullptr;
  ZAL_ObjectHandle_* prev = nullptr;  ///< of the first in a list: the last one
  ZAL_ObjectHandle_* children = nullptr;

  ZAL_ObjectHandle_* parent = nullptr;  ///< the handle that this one was made through and that releases it, or null
  ZAL_ObjectHandle_* tree = nullptr;    ///< the top handle of the node's tree, known to views too
  zal::CPtr<char> path;                 ///< from the root's node down to this one; made when a filter first needs it
  std::unique_ptr<const zal::object::Filter> parsed;  ///< a top handle's filter, read when it is first needed
};

namespace zal::object {

using Handle = ZAL_ObjectHandle_;

inline constexpr std::uint8_t kObjectKind = 0xCC;
inline constexpr std::uint8_t kArrayKind = 0xFF;
inline constexpr std::uint8_t kOtherKind = 0;

/// A top handle over a new tree. Null, after a log line in the name of `function`, without a node or a record.
Handle* createTop(std::uint8_t kind, JsonPtr node, const char* filter, const char* function) noexcept;

/// A top handle over `node`, which stays the caller's when there is no record: null, after a log line.
Handle* wrapTree(std::uint8_t kind, cJSON* node, const char* filter, const char* function) noexcept;

/// A view of a node in the tree of `source`. Null, after a log line, when there is no record.
Handle* createView(const Handle& source, cJSON* node, const char* function) noexcept;

/// Makes an empty object or array and, once `attach` has put it into the parent's node, its sub-handle; null otherwise.
template <class Attach>
Handle* createSub(Handle& parent, std::uint8_t kind, const char* function, Attach attach) noexcept;

/// Appends `child` to the parent's list. The child and all below it join the parent's tree.
void adopt(Handle& parent, Handle& child) noexcept;

/// The handle after `handle` in the order parent before child, among `scope` and all handles below it; null at the end.
Handle* nextWithin(const Handle& scope, Handle* handle) noexcept;

/// Frees the records of `handle`, of its list and of all below; the JSON tree is left alone.
void freeRecords(Handle* handle) noexcept;

/// The filter that members of this tree are tested with; null when memory runs out.
const Filter* filterOf(Handle& handle) noexcept;

/// The same test as passes, for a tree with a filter.
bool passesFilter(Handle& handle, const char* key, Strictness strictness) noexcept;

inline bool hasFilter(const Handle& handle) noexcept {
  return handle.root != nullptr && handle.root->filter != nullptr;
}

/// Whether a member of that key would be part of the answer. False when memory runs out.
inline bool passes(Handle& handle, const char* key, Strictness strictness) noexcept {
  return key == nullptr || !hasFilter(handle) || passesFilter(handle, key, strictness);
}

inline bool isTop(const Handle& handle) noexcept {
  return handle.root == &handle;
}

/// The top handle of the tree that a handle's node stands in now, also for a view of a tree that was appended since.
inline const Handle& topOf(const Handle& handle) noexcept {
  const Handle* top = handle.tree;
  while (top->tree != top) top = top->tree;
  return *top;
}

/// Whether adding `node` through the handle would make a tree hold itself.
inline bool isTreeOf(const Handle& handle, const cJSON* node) noexcept {
  return node != nullptr && (node == handle.item || node == topOf(handle).item);
}

/// The handle's node; null for a null handle and for one whose node is gone.
inline cJSON* nodeOf(const Handle* handle) noexcept {
  return handle == nullptr ? nullptr : handle->item;
}

/// The handle's node when it is an array, else null.
inline cJSON* arrayOf(const Handle* handle) noexcept {
  cJSON* node = nodeOf(handle);
  return node != nullptr && typeOf(*node) == cJSON_Array ? node : nullptr;
}

/// The handle's node when members can be added to it, else null.
inline cJSON* writableNode(const Handle* handle) noexcept {
  cJSON* node = nodeOf(handle);
  return node != nullptr && isWritable(*node) ? node : nullptr;
}

template <class Attach>
Handle* createSub(Handle& parent, std::uint8_t kind, const char* function, Attach attach) noexcept {
  JsonPtr node{kind == kArrayKind ? cJSON_CreateArray() : cJSON_CreateObject()};
  Handle* sub = createTop(kind, std::move(node), nullptr, function);
  if (sub == nullptr) return nullptr;
  if (!attach(JsonPtr{sub->item})) {
    freeRecords(sub);
    return nullptr;
  }
  adopt(parent, *sub);
  return sub;
}

}  // namespace zal::object
