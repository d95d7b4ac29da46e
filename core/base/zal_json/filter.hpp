// The document side of the request filters: which members of a document were asked for.
// One thread at a time, like the document that is filtered.
#pragma once

#include <cjson/cJSON.h>

#include "support/member_path.hpp"

namespace zal::json {

/// Where a member would be added, and what decides over it; everything may be null.
struct Place {
  cJSON* parent;
  const char* filterA;
  const char* filterB;
  cJSON* top;
  const char* key;
};

/// Whether a member belongs there by both filters. Also false when memory runs out, which is reported.
bool passes(const Place& place, Strictness strictness) noexcept;

}  // namespace zal::json
