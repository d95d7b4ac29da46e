// JSON under an input: documents of the library and of cJSON, printed for comparison.
#pragma once

#include <cjson/cJSON.h>
#include <zal/zal_object.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "fuzz.hpp"
#include "support/memory.hpp"

namespace zal::fuzz {

struct ObjectDestroy {
  void operator()(ZAL_ObjectHandle handle) const noexcept {
    ZAL_Object_IsArray(handle) != 0 ? ZAL_Array_Destroy(handle) : ZAL_Object_Destroy(handle);
  }
};
/// A top handle or a view.
using Object = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, ObjectDestroy>;

inline std::string takeText(char* text) {
  const CPtr<char> owner{text};
  FUZZ_CHECK(text != nullptr);
  return text;
}

/// The text of a tree as cJSON prints it.
inline std::string printed(const cJSON* node) {
  return takeText(cJSON_PrintUnformatted(node));
}

inline JsonPtr parsed(std::string_view text) noexcept {
  return JsonPtr{cJSON_ParseWithLength(text.data(), text.size())};
}

inline Object parsedObject(std::string_view text) noexcept {
  return Object{ZAL_Object_CreateFromJson(text.data(), text.size())};
}

/// The identifier of a member: the one above it, "/" and its key; elements of arrays add nothing.
inline std::string below(const std::string& identifier, const char* key) {
  if (key == nullptr) return identifier;
  return identifier.empty() ? key : identifier + '/' + key;
}

/// Identifiers of this length and below are not cut, nor are keys left out of them.
inline constexpr std::size_t kUncut = 1000;

}  // namespace zal::fuzz
