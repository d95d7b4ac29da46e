// What may be done to a bare cJSON node, and how one is added to a tree.
#pragma once

#include <cjson/cJSON.h>

#include <cmath>

#include "support/memory.hpp"

namespace zal {

/// One of cJSON's types, without the flags beside it.
inline int typeOf(const cJSON& node) noexcept {
  constexpr int kTypeBits = 0xFF;
  return node.type & kTypeBits;
}

inline bool isContainer(const cJSON& node) noexcept {
  return typeOf(node) == cJSON_Array || typeOf(node) == cJSON_Object;
}

/// Whether the node only refers to children that belong to another tree, which are not this tree's to change.
inline bool isReference(const cJSON& node) noexcept {
  return (node.type & cJSON_IsReference) != 0;
}

/// Whether members or elements can be added to the node.
inline bool isWritable(const cJSON& node) noexcept {
  return isContainer(node) && !isReference(node);
}

/// Adds a member; the item is freed when it cannot be added (no key, no item, no memory).
[[nodiscard]] inline bool addMember(cJSON& parent, const char* key, JsonPtr item) noexcept {
  if (!cJSON_AddItemToObject(&parent, key, item.get())) return false;
  static_cast<void>(item.release());  // the tree owns it now
  return true;
}

/// The same for an element.
[[nodiscard]] inline bool addElement(cJSON& array, JsonPtr item) noexcept {
  if (!cJSON_AddItemToArray(&array, item.get())) return false;
  static_cast<void>(item.release());
  return true;
}

/// A number, or null for what JSON cannot express (infinities and NaN), as cJSON would print it.
inline JsonPtr makeNumber(double value) noexcept {
  return JsonPtr{std::isfinite(value) ? cJSON_CreateNumber(value) : cJSON_CreateNull()};
}

}  // namespace zal
