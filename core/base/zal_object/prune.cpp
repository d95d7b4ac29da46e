// filterPruneTree, and the walk behind it.
#include "base/zal_object/prune.hpp"

#include <zal/zal_object.h>

#include <cstddef>
#include <optional>
#include <utility>

#include "support/boundary.hpp"
#include "support/json_node.hpp"
#include "support/json_walk.hpp"
#include "support/member_path.hpp"

namespace zal::object {
namespace {

constexpr int kBuried = 1 << 16;  ///< a bit of cJSON's `type` that cJSON does not use

/// Goes through a tree, children before their parent, and knows each node's path. The current node may be cut off.
class PostOrder {
 public:
  PostOrder(cJSON& start, const MemberPath& pathOfStart) : path_{pathOfStart}, walk_{start, pathOfStart.length()} {}

  /// The next node, null at the end.
  cJSON* next() {
    if (isAtNode_) leave();
    isAtNode_ = !walk_.atEnd();
    if (!isAtNode_) return nullptr;
    while (cJSON* child = walk_.nextChild()) {
      walk_.enter(*child, path_.length());
      path_.enter(child->string);
    }
    return &walk_.node();
  }

  /// Of the current node, from the top on.
  [[nodiscard]] const MemberPath& path() const noexcept { return path_; }
  /// The current node's parent; null at the start.
  [[nodiscard]] cJSON* parent() const noexcept { return walk_.parent(); }

 private:
  void leave() noexcept {
    path_.leave(walk_.note());
    walk_.leave();
  }

  MemberPath path_;
  JsonWalk<cJSON, JsonOrder::kOldestFirst, std::size_t> walk_;  ///< notes the length of the path above each level
  bool isAtNode_ = false;
};

/// The keys below `top` down to `node`; the node's own key when it does not lie there.
MemberPath pathBelow(cJSON& top, const cJSON& node) {
  if (&node == &top) return {};
  PostOrder all{top, {}};
  while (const cJSON* at = all.next())
    if (at == &node) return all.path();
  MemberPath own;
  own.enter(node.string);
  return own;
}

bool fails(const Filter& filter, const cJSON& top, const cJSON& node, const MemberPath& path) noexcept {
  if (node.string != nullptr) {
    const Identifier identifier{top.string == nullptr ? "" : top.string, &node == &top ? nullptr : path.text()};
    const bool isLoose = isContainer(node) || cJSON_IsString(&node);
    if (!filter.passes(identifier.view(), isLoose ? Strictness::kLoose : Strictness::kStrict)) return true;
  }
  return isContainer(node) && node.child == nullptr;
}

JsonPtr cutOff(cJSON& node, cJSON* parent) noexcept {
  return JsonPtr{parent == nullptr ? &node : cJSON_DetachItemViaPointer(parent, &node)};
}

bool prune(const Filter& filter, cJSON& top, cJSON& node, cJSON* parent, Graveyard& graveyard) {
  PostOrder walk{node, pathBelow(top, node)};
  while (cJSON* at = walk.next()) {
    if (!fails(filter, top, *at, walk.path())) continue;
    graveyard.bury(cutOff(*at, at == &node ? parent : walk.parent()));
    if (at == &node) return false;
  }
  return true;
}

}  // namespace

void Graveyard::bury(JsonPtr subtree) noexcept {
  cJSON* node = subtree.release();
  if (node == nullptr) return;
  (last_ == nullptr ? first_ : last_->next) = node;
  last_ = node;
  for (; node != nullptr; node = node->next) {
    node->type |= kBuried;
    if (isReference(*node) || node->child == nullptr) continue;
    last_->next = std::exchange(node->child, nullptr);
    while (last_->next != nullptr) last_ = last_->next;
  }
}

void Graveyard::forget(Handle& scope) const noexcept {
  for (Handle* handle = &scope; handle != nullptr; handle = nextWithin(scope, handle))
    if (handle->item != nullptr && (handle->item->type & kBuried) != 0) handle->item = nullptr;
}

bool pruneNode(const Filter& filter, cJSON& top, cJSON& node, cJSON* parent, Graveyard& graveyard) noexcept {
  const auto isLeft = guarded(ZAL_HERE, std::optional<bool>{},
                              [&] { return std::optional{prune(filter, top, node, parent, graveyard)}; });
  // Memory ran out half-way: what cannot be tested is not shown.
  if (!isLeft) graveyard.bury(cutOff(node, parent));
  return isLeft.value_or(false);
}

}  // namespace zal::object

void filterPruneTree(const char* filter, cJSON* top, cJSON** node, cJSON* parent) noexcept {
  if (node == nullptr || *node == nullptr) return;
  zal::object::Graveyard graveyard;
  const zal::object::Filter parsed{filter};
  if (!zal::object::pruneNode(parsed, top == nullptr ? **node : *top, **node, parent, graveyard)) *node = nullptr;
}
