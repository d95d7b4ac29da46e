// The owner of a parsed URI.
#pragma once

#include <zal/zal_uri.h>

#include <memory>
#include <type_traits>

namespace zal {

struct UriDestroy {
  void operator()(ZAL_UriParserHandle uri) const noexcept { ZAL_UriParser_Destroy(uri); }
};

/// Null when the text does not parse. The text must outlive it.
using UriPtr = std::unique_ptr<std::remove_pointer_t<ZAL_UriParserHandle>, UriDestroy>;

}  // namespace zal
