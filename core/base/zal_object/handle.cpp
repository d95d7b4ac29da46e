// Handle records: made, joined into lists, walked and freed, all without recursion, since a tree may be deeper than a
// small stack. Also what a handle knows about itself for the filter: its path and the parsed text.
#include "base/zal_object/handle.hpp"

#include <new>
#include <string_view>
#include <utility>

#include "support/log.hpp"
#include "support/member_path.hpp"

namespace zal::object {
namespace {

/// The path of a handle whose parent, if any, has one already.
CPtr<char> makePath(const Handle& handle) noexcept {
  if (handle.parent == nullptr) return copyText("");
  MemberPath path{handle.parent->path.get()};
  if (handle.item != nullptr) path.enter(handle.item->string);
  return copyText({path.text(), path.length()});
}

/// The keys from the root's node down to the handle's, joined by "/". Each handle keeps its own, so that adding a
/// member costs the same however large the tree has become. Null when memory runs out.
const char* pathOf(Handle& handle) noexcept {
  while (!handle.path) {
    Handle* upper = &handle;
    while (upper->parent != nullptr && !upper->parent->path) upper = upper->parent;
    upper->path = makePath(*upper);
    if (!upper->path) return nullptr;
  }
  return handle.path.get();
}

}  // namespace

Handle* createTop(std::uint8_t kind, JsonPtr node, const char* filter, const char* function) noexcept {
  if (!node) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Unable to create cJSON Object\n");
    return nullptr;
  }
  Handle* handle = wrapTree(kind, node.get(), filter, function);
  if (handle != nullptr) static_cast<void>(node.release());  // the handle owns it now
  return handle;
}

Handle* wrapTree(std::uint8_t kind, cJSON* node, const char* filter, const char* function) noexcept {
  auto* handle = new (std::nothrow) Handle{};
  if (handle == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "Unable to create %s Object\n", kind == kArrayKind ? "Array" : "ZAL");
    return nullptr;
  }
  handle->kind = kind;
  handle->root = handle;
  handle->item = node;
  handle->filter = filter;
  handle->tree = handle;
  return handle;
}

Handle* createView(const Handle& source, cJSON* node, const char* function) noexcept {
  auto* view = new (std::nothrow) Handle{};
  if (view == nullptr) {
    ZAL_LOG_AS(ZAL_LOG_ERROR, function, "failed to allocate memory\n");
    return nullptr;
  }
  view->item = node;
  view->tree = source.tree;
  return view;
}

void adopt(Handle& parent, Handle& child) noexcept {
  child.parent = &parent;
  if (parent.children == nullptr) {
    parent.children = &child;
  } else {
    parent.children->prev->next = &child;
    child.prev = parent.children->prev;
  }
  parent.children->prev = &child;

  for (Handle* handle = &child; handle != nullptr; handle = nextWithin(child, handle)) {
    handle->root = parent.root;
    handle->filter = parent.filter;
    handle->tree = parent.tree;
    handle->path.reset();
    handle->parsed.reset();
  }
}

Handle* nextWithin(const Handle& scope, Handle* handle) noexcept {
  if (handle->children != nullptr) return handle->children;
  while (handle != &scope && handle->next == nullptr) handle = handle->parent;
  return handle == &scope ? nullptr : handle->next;
}

void freeRecords(Handle* handle) noexcept {
  while (handle != nullptr) {
    if (Handle* first = handle->children; first != nullptr) {  // they are freed next, before the rest of the list
      first->prev->next = handle->next;
      handle->next = first;
    }
    const std::unique_ptr<Handle> freed{std::exchange(handle, handle->next)};
  }
}

const Filter* filterOf(Handle& handle) noexcept {
  if (!hasFilter(handle)) return &kEverything;
  auto& parsed = handle.root->parsed;
  if (!parsed) parsed.reset(new (std::nothrow) Filter{handle.root->filter});
  return parsed.get();
}

bool passesFilter(Handle& handle, const char* key, Strictness strictness) noexcept {
  const Filter* filter = filterOf(handle);
  if (filter == nullptr || filter->passesEverything()) return filter != nullptr;
  const char* path = pathOf(handle);
  return path != nullptr && filter->passes(Identifier{path, key}.view(), strictness);
}

}  // namespace zal::object
