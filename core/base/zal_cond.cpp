// Latched conditions: a signal stays pending until one wait consumes it. Any thread.
#include <zal/zal_runtime.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "support/log.hpp"

struct ZAL_CondHandle_ {
  uv_cond_t cond;
  uv_mutex_t mutex;
  std::uint8_t signalled;  ///< under the mutex
};

namespace {

constexpr std::uint64_t kNanosPerMilli = 1000000;
/// About 31 years. What is longer would overflow the clock of a 32-bit system, to which libuv adds the time-out.
constexpr std::uint64_t kLongestWaitMs = 1000000000000;

class HoldCond {
 public:
  explicit HoldCond(ZAL_CondHandle_& cond) noexcept : cond_{cond} { uv_mutex_lock(&cond_.mutex); }
  ~HoldCond() { uv_mutex_unlock(&cond_.mutex); }
  HoldCond(const HoldCond&) = delete;
  HoldCond& operator=(const HoldCond&) = delete;

 private:
  ZAL_CondHandle_& cond_;
};

bool initialise(ZAL_CondHandle_& cond) noexcept {
  if (uv_cond_init(&cond.cond) != 0) return false;
  if (uv_mutex_init(&cond.mutex) == 0) return true;
  uv_cond_destroy(&cond.cond);
  return false;
}

bool consumeSignal(ZAL_CondHandle_& cond) noexcept {
  const bool wasSignalled = cond.signalled != 0;
  cond.signalled = 0;
  return wasSignalled;
}

}  // namespace

ZAL_CondHandle ZAL_Cond_Create(void) noexcept {
  std::unique_ptr<ZAL_CondHandle_> cond{new (std::nothrow) ZAL_CondHandle_{}};
  if (cond == nullptr || !initialise(*cond)) {
    ZAL_LOG(ZAL_LOG_ERROR, "Unable to allocate memory for cond ");
    return nullptr;
  }
  return cond.release();
}

void ZAL_Cond_Signal(ZAL_CondHandle cond) noexcept {
  const HoldCond hold{*cond};
  cond->signalled = 1;
  uv_cond_signal(&cond->cond);
}

int ZAL_Cond_Wait(ZAL_CondHandle cond, std::uint64_t timeoutMs) noexcept {
  const HoldCond hold{*cond};
  if (consumeSignal(*cond)) return 0;
  const std::uint64_t start = uv_hrtime();
  const std::uint64_t budget = std::min(timeoutMs, kLongestWaitMs) * kNanosPerMilli;
  for (std::uint64_t elapsed = 0; elapsed < budget; elapsed = uv_hrtime() - start) {
    const int result = uv_cond_timedwait(&cond->cond, &cond->mutex, budget - elapsed);
    if (consumeSignal(*cond)) return 0;
    if (result != 0) return result;
  }
  return UV_ETIMEDOUT;
}

void ZAL_Cond_Destroy(ZAL_CondHandle cond) noexcept {
  if (cond == nullptr) return;
  uv_cond_destroy(&cond->cond);
  uv_mutex_destroy(&cond->mutex);
  delete cond;
}
