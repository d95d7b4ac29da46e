// Owners of what crosses the C boundary: malloc's blocks, JSON nodes, and records that are made without throwing.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace zal {

struct CFree {
  void operator()(void* block) const noexcept { std::free(block); }
};

/// A block or text of malloc's, to be released to a caller who frees it with free().
template <class T>
using CPtr = std::unique_ptr<T, CFree>;

/// `size` uninitialised bytes of malloc's, null when memory runs out. A size of 0 gives a block of one byte.
inline CPtr<char> allocateBytes(std::size_t size) noexcept {
  return CPtr<char>{static_cast<char*>(std::malloc(size == 0 ? 1 : size))};
}

/// A terminated copy of `text` in malloc's memory, null when memory runs out.
inline CPtr<char> copyText(std::string_view text) noexcept {
  CPtr<char> copy = allocateBytes(text.size() + 1);
  if (copy) {
    if (!text.empty()) std::memcpy(copy.get(), text.data(), text.size());
    copy.get()[text.size()] = '\0';
  }
  return copy;
}

/// The characters of an owned text, none for null.
inline std::string_view viewOf(const CPtr<char>& text) noexcept {
  return text ? std::string_view{text.get()} : std::string_view{};
}

struct JsonDelete {
  void operator()(cJSON* node) const noexcept { cJSON_Delete(node); }
};

/// A JSON node that no tree owns yet.
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

}  // namespace zal
