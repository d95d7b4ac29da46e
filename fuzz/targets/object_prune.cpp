// Any document, cut down by any filter: as a tree, as a member, and as a document that is appended to another one while
// handles of its members are held.
#include <zal/zal_message.h>
#include <zal/zal_object.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/zal_message.hpp"
#include "support/fuzz.hpp"
#include "support/json.hpp"
#include "support/json_node.hpp"

namespace {

using zal::JsonPtr;
using zal::fuzz::Object;
using zal::fuzz::Text;

struct MessageDestroy {
  void operator()(ZAL_MessageHandle message) const { ZAL_Message_Destroy(message); }
};
using Message = std::unique_ptr<std::remove_pointer_t<ZAL_MessageHandle>, MessageDestroy>;

/// Everything that is left must pass the filter, and no container may be empty.
void checkLeft(const char* filter, const cJSON& node, const std::string& identifier) {
  const bool isContainer = zal::isContainer(node);
  const int strictness = isContainer || cJSON_IsString(&node) ? 0 : 1;
  if (identifier.size() <= zal::fuzz::kUncut && node.string != nullptr)
    FUZZ_CHECK(filterTest(filter, identifier.c_str(), strictness) != 0);
  FUZZ_CHECK(!isContainer || node.child != nullptr);
  for (const cJSON* child = node.child; child != nullptr; child = child->next)
    checkLeft(filter, *child, zal::fuzz::below(identifier, child->string));
}

void pruneTree(const char* filter, JsonPtr tree) {
  cJSON* node = tree.release();
  filterPruneTree(filter, node, &node, nullptr);
  tree.reset(node);
  if (!tree) return;
  checkLeft(filter, *tree, "");
  const std::string once = zal::fuzz::printed(tree.get());
  node = tree.release();
  filterPruneTree(filter, node, &node, nullptr);
  tree.reset(node);
  FUZZ_CHECK(tree != nullptr && zal::fuzz::printed(tree.get()) == once);
}

/// What a telemetry answer with that filter holds after `add`.
template <class Add>
void addTo(const char* filter, Add add) {
  const Message message{ZAL_Message_Create()};
  zal::setMessageFilter(message.get(), filter);
  const Object top{ZAL_TelemetryObject_Create(message.get())};
  add(top.get());
  const std::string text = zal::fuzz::takeText(ZAL_Object_DumpOutput(top.get()));
  FUZZ_CHECK(text == zal::fuzz::printed(ZAL_Object_GetInternal(top.get())));
  FUZZ_CHECK(zal::fuzz::parsed(text) != nullptr);
}

/// A document with members added through sub-handles, which go on after it has become part of another one.
void append(ZAL_ObjectHandle top, const char* key, Object document) {
  ZAL_ObjectHandle child = document.get();
  ZAL_ObjectHandle inner = ZAL_Object_AddObject(child, key);
  ZAL_ObjectHandle array = ZAL_Object_AddArray(child, "array");
  ZAL_ObjectHandle element = ZAL_Array_AddObject(array);
  ZAL_Object_AddString(inner, "a", "text");
  ZAL_Object_AddInt32(element, key, 1);
  ZAL_Object_AppendObject(top, key, child);
  static_cast<void>(document.release());  // the parent has taken it
  ZAL_Object_AddInt32(child, "late", 2);
  ZAL_Object_AddInt32(inner, key, 3);
  ZAL_Array_AddInt32(array, 4);
  ZAL_Object_AddBool(element, "late", 1);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  zal::fuzz::Input input{data, size};
  const Text filter = input.text();
  const Text key = input.text();
  const std::string_view text = input.rest();
  JsonPtr tree = zal::fuzz::parsed(text);
  if (!tree) return 0;
  addTo(filter.get(), [&](ZAL_ObjectHandle top) {
    ZAL_Object_AddJson(top, key.get(), cJSON_Duplicate(tree.get(), 1));
    ZAL_Object_AddJson(top, key.get(), cJSON_CreateNumber(1));
  });
  addTo(filter.get(), [&](ZAL_ObjectHandle top) { append(top, key.get(), zal::fuzz::parsedObject(text)); });
  pruneTree(filter.get(), std::move(tree));
  return 0;
}
