// The version that the library was built as.
#include <zal/zal_version.h>

extern "C" uint32_t ZAL_GetVersion() noexcept {
  return ZAL_VERSION;
}
