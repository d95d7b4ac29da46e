// Looking through finished documents, and cleaning them: what is empty, what is to be hidden. Cutting arrays is done in
// range.cpp.
#include <zal/zal_json.h>

#include <string>

#include "base/zal_json/find.hpp"
#include "base/zal_json/report.hpp"
#include "support/json_node.hpp"
#include "support/json_walk.hpp"
#include "support/memory.hpp"

namespace {

using zal::JsonPtr;
using zal::JsonWalk;

JsonPtr detach(cJSON& parent, cJSON& child) noexcept {
  return JsonPtr{cJSON_DetachItemViaPointer(&parent, &child)};
}

void pruneEmpty(cJSON& start, cJSON* parent) {
  JsonWalk<cJSON> walk{start};
  while (!walk.atEnd()) {
    if (cJSON* child = walk.nextChild(); child != nullptr) {
      walk.enter(*child);
      continue;
    }
    cJSON& node = walk.node();
    cJSON* owner = walk.parent() == nullptr ? parent : walk.parent();
    walk.leave();
    if (owner != nullptr && zal::isContainer(node) && node.child == nullptr) detach(*owner, node);
  }
}

void replaceByNull(cJSON& object, cJSON& member, const char* key) noexcept {
  detach(object, member);
  if (!zal::addMember(object, key, JsonPtr{cJSON_CreateNull()})) zal::json::report("Unable to create JSON Null");
}

void nullMembers(const std::string& key, cJSON& start) {
  JsonWalk<cJSON> walk{start};
  while (!walk.atEnd()) {
    cJSON* child = walk.nextChild();
    if (child == nullptr) {
      walk.leave();
    } else if (zal::json::hasKey(*child, key)) {
      replaceByNull(walk.node(), *child, key.c_str());
      walk.leave();
    } else {
      walk.enter(*child);
    }
  }
}

bool holdsNoValue(const cJSON& start) {
  if (!zal::isContainer(start)) return false;
  JsonWalk<const cJSON> walk{start};
  while (!walk.atEnd()) {
    const cJSON* child = walk.nextChild();
    if (child == nullptr) {
      walk.leave();
    } else if (zal::isContainer(*child)) {
      walk.enter(*child);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

void json_PruneEmptyObjects(cJSON* node, cJSON* parent) noexcept {
  if (node == nullptr) return;
  zal::json::walking([&] { pruneEmpty(*node, parent); });
}

void json_NullObject(const char* key, cJSON* object) noexcept {
  if (key == nullptr || object == nullptr) return;
  // A copy: the caller's text may be the key of a member that is deleted on the way.
  zal::json::walking([&] { nullMembers(std::string{key}, *object); });
}

int json_IsEmptyObjects(const cJSON* node) noexcept {
  return node == nullptr || zal::json::walking(false, [&] { return holdsNoValue(*node); }) ? 1 : 0;
}

int json_IsEmpty(const cJSON* node) noexcept {
  return node == nullptr || node->child == nullptr ? 1 : 0;
}

cJSON* json_FindElement(const cJSON* node, const char* key) noexcept {
  return node == nullptr || key == nullptr ? nullptr : zal::json::findMember(*node, key);
}
