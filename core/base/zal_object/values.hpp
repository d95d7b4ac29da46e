// What the typed getters read from one node. Empty: the node holds no value of that type.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "support/number.hpp"

namespace zal::object {

/// The low 32 bits, in two's complement.
constexpr std::int32_t lowBits(std::int64_t value) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(value)));
}

inline std::optional<std::int64_t> int64Of(const cJSON& node) noexcept {
  if (cJSON_IsNumber(&node)) return toInt64(node.valuedouble);
  if (cJSON_IsString(&node)) return std::strtoll(node.valuestring, nullptr, 10);
  return std::nullopt;
}

inline std::optional<std::int32_t> int32Of(const cJSON& node) noexcept {
  if (cJSON_IsNumber(&node)) return lowBits(toInt64(node.valuedouble));
  if (cJSON_IsString(&node)) return readInt32(node.valuestring);
  return std::nullopt;
}

inline std::optional<double> doubleOf(const cJSON& node) noexcept {
  if (cJSON_IsNumber(&node)) return node.valuedouble;
  if (cJSON_IsString(&node)) return readDouble(node.valuestring);
  return std::nullopt;
}

/// JSON true and false, and texts that begin with one of the two words.
inline std::optional<std::uint8_t> boolOf(const cJSON& node) noexcept {
  if (cJSON_IsBool(&node)) return cJSON_IsTrue(&node) ? 1 : 0;
  if (!cJSON_IsString(&node)) return std::nullopt;
  if (std::strncmp(node.valuestring, "true", 4) == 0) return 1;
  if (std::strncmp(node.valuestring, "false", 5) == 0) return 0;
  return std::nullopt;
}

}  // namespace zal::object
