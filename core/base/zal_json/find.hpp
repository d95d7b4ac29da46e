// How members of bare nodes are found: by exactly their key, which elements of arrays do not have.
#pragma once

#include <cjson/cJSON.h>

#include <string_view>

namespace zal::json {

inline bool hasKey(const cJSON& node, std::string_view key) noexcept {
  return node.string != nullptr && key == node.string;
}

/// The first direct child of that key, null when there is none.
inline cJSON* findMember(const cJSON& node, std::string_view key) noexcept {
  cJSON* child = node.child;
  while (child != nullptr && !hasKey(*child, key)) child = child->next;
  return child;
}

}  // namespace zal::json
