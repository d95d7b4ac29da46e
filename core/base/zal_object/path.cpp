// Member paths. A path is cut into steps at ":", and each step leads from a node to a member or an element below it.
#include "base/zal_object/path.hpp"

#include <zal/zal_log.h>

#include <cstdlib>
#include <cstring>
#include <limits>

#include "support/log.hpp"
#include "support/memory.hpp"

namespace zal::object {
namespace {

/// A step such as "ports[2]"; `step` is cut at its first "[". What follows the "]" is ignored.
cJSON* getArrayObject(const cJSON* node, char* step) noexcept {
  char* bracket = std::strchr(step, '[');
  *bracket = '\0';
  const cJSON* array = cJSON_GetObjectItem(node, step);
  if (!cJSON_IsArray(array)) {
    ZAL_LOG(ZAL_LOG_ERROR, "%s: is not an array\n", step);
    return nullptr;
  }
  const long index = std::strtol(bracket + 1, nullptr, 10);
  if (index < 0 || index > std::numeric_limits<int>::max()) return nullptr;
  return cJSON_GetArrayItem(array, static_cast<int>(index));
}

cJSON* takeStep(const cJSON* node, char* step) noexcept {
  const bool isElement = std::strchr(step, '[') != nullptr && std::strchr(step, ']') != nullptr;
  return isElement ? getArrayObject(node, step) : cJSON_GetObjectItem(node, step);
}

}  // namespace

cJSON* getPathObject(cJSON* node, const char* path) noexcept {
  if (node == nullptr || path == nullptr || *path == '\0') return nullptr;
  if (std::strpbrk(path, ":[") == nullptr) return cJSON_GetObjectItem(node, path);

  const CPtr<char> steps = copyText(path);
  if (!steps) return nullptr;
  char* rest = nullptr;
  char* step = strtok_r(steps.get(), ":", &rest);
  cJSON* found = step == nullptr ? nullptr : node;
  for (; step != nullptr && found != nullptr; step = strtok_r(nullptr, ":", &rest)) found = takeStep(found, step);
  return found;
}

}  // namespace zal::object
