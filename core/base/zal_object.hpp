// What the data model offers the rest of the library beside its exported functions. Any thread.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>

#include "support/memory.hpp"

namespace zal {

/// The unformatted JSON text of a node, in malloc's memory whatever allocator a program has given to cJSON. Null for a
/// null node, or when memory runs out.
CPtr<char> printJson(const cJSON* node) noexcept;

/// The terminated base64 text of some bytes; a length of 0 gives an empty text. Null when `bytes` is null but not
/// empty, when the text would be longer than 2^31 - 1 characters, or when memory runs out.
CPtr<char> base64Text(const void* bytes, std::uint32_t length) noexcept;

}  // namespace zal
