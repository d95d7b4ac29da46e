// Member paths: how the getters find a member.
#pragma once

#include <cjson/cJSON.h>

namespace zal::object {

/// Finds the member that a path such as "interfaces[0]:name" leads to from `node`; null when there is none. A null node
/// and a null or empty path find nothing; so does a path of nothing but ":".
cJSON* getPathObject(cJSON* node, const char* path) noexcept;

}  // namespace zal::object
