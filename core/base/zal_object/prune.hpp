// Cutting ready-made trees down to what was asked for, and getting rid of what was cut off, without recursion.
#pragma once

#include <cjson/cJSON.h>

#include "base/zal_object/filter.hpp"
#include "base/zal_object/handle.hpp"
#include "support/memory.hpp"

namespace zal::object {

/// Collects subtrees that were cut off and deletes them together, so that the handles of their nodes can be told first.
class Graveyard {
 public:
  Graveyard() noexcept = default;
  ~Graveyard() { cJSON_Delete(first_); }
  Graveyard(const Graveyard&) = delete;
  Graveyard& operator=(const Graveyard&) = delete;

  /// Takes a subtree that no tree owns any more; null is allowed.
  void bury(JsonPtr subtree) noexcept;
  /// Takes the nodes away from those of `scope` and the handles below it that stand for buried ones.
  void forget(Handle& scope) const noexcept;

 private:
  cJSON* first_ = nullptr;  ///< a flat list: buried nodes have no children
  cJSON* last_ = nullptr;
};

/// Prunes `node`, which is `top` or lies below it; paths begin at the top, `parent` is the node's owner or null. What
/// fails is buried, in the end the node itself. Returns whether the node is left.
[[nodiscard]] bool pruneNode(const Filter& filter, cJSON& top, cJSON& node, cJSON* parent,
                             Graveyard& graveyard) noexcept;

}  // namespace zal::object
