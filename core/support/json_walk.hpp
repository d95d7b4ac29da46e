// The way through a JSON tree without recursion: the levels stand on the heap, since documents may be a thousand levels
// deep and a worker's stack small. Going down throws when memory runs out, so it is done within a boundary.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <type_traits>
#include <variant>
#include <vector>

#include "support/json_node.hpp"

namespace zal {

/// In which order the children of a node are given out.
enum class JsonOrder : std::uint8_t { kOldestFirst, kNewestFirst };

/// Stands at a node and knows the nodes above it, up to where it started. Each level knows its next child beforehand,
/// so a child that was given out may be cut off and deleted. A `Note` is kept for each level. `Node` is cJSON, or const
/// for a walk that only looks: one that may change nodes sees no children of a reference, which are another tree's.
template <class Node, JsonOrder order = JsonOrder::kOldestFirst, class Note = std::monostate>
class JsonWalk {
 public:
  struct Level {
    Node* node;
    Node* nextChild;
    Note note;
  };

  explicit JsonWalk(Node& start, Note note = {}) {
    levels_.reserve(16);  // few documents are deeper
    enter(start, note);
  }

  /// Whether the start was left.
  [[nodiscard]] bool atEnd() const noexcept { return levels_.empty(); }
  [[nodiscard]] Node& node() const noexcept { return *levels_.back().node; }
  [[nodiscard]] Note& note() noexcept { return levels_.back().note; }
  /// The node above; null at the start.
  [[nodiscard]] Node* parent() const noexcept {
    return levels_.size() < 2 ? nullptr : levels_[levels_.size() - 2].node;
  }
  /// From the start down to the node.
  [[nodiscard]] const std::vector<Level>& levels() const noexcept { return levels_; }

  /// The next child of the node, null after the last one.
  Node* nextChild() noexcept {
    Level& level = levels_.back();
    Node* child = level.nextChild;
    if (child != nullptr) level.nextChild = after(*level.node, *child);
    return child;
  }

  /// Goes down to a child of the node.
  void enter(Node& child, Note note = {}) { levels_.push_back({&child, first(child), note}); }
  /// Goes back up.
  void leave() noexcept { levels_.pop_back(); }

 private:
  // The oldest child's `prev` is the newest one.
  static Node* first(Node& node) noexcept {
    if (!std::is_const_v<Node> && isReference(node)) return nullptr;
    return order == JsonOrder::kOldestFirst || node.child == nullptr ? node.child : node.child->prev;
  }
  static Node* after(Node& node, Node& child) noexcept {
    if (order == JsonOrder::kOldestFirst) return child.next;
    return &child == node.child ? nullptr : child.prev;
  }

  std::vector<Level> levels_;
};

}  // namespace zal
