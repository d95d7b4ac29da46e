// The work queue; what it is for stands in the header.
#include "base/zal_client/work_queue.hpp"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <utility>

#include "base/zal_client/client.hpp"

namespace zal {

namespace {

/// Short enough for other jobs that wait for the pool, and longer than a tick of the kernel's clock (10 ms at most): a
/// nearer end would be the processor's next deadline, and to set its timer anew at each wait costs more than to wake.
timespec endOfLingering() noexcept {
  constexpr long kMomentNs = 20'000'000;
  constexpr long kSecondNs = 1'000'000'000;
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_nsec += kMomentNs;
  if (end.tv_nsec >= kSecondNs) {
    end.tv_nsec -= kSecondNs;
    ++end.tv_sec;
  }
  return end;
}

/// The workers of all clients that linger. They leave half of the pool to others.
std::atomic<std::size_t> lingering{0};

bool mayLinger() noexcept {
  if (lingering.fetch_add(1) < workerPoolSize() / 2) return true;
  lingering.fetch_sub(1);
  return false;
}

}  // namespace

void WorkItemDelete::operator()(ZAL_ClientWorkItem_* item) const noexcept {
  delete item;
}

bool WorkQueue::push(WorkItemPtr item) noexcept {
  {
    const LockGuard hold{mutex_};
    ZAL_INVARIANT(item->next == nullptr && (head_ == nullptr || tail_->next == nullptr));
    ZAL_INVARIANT(!isLingering_ || workers_ > 0);
    ZAL_ClientWorkItem_* const added = item.release();
    (head_ == nullptr ? head_ : tail_->next) = added;
    tail_ = added;
    if (!std::exchange(isLingering_, false)) {
      const bool startsWorker = workers_ < workerPoolSize();
      if (startsWorker) ++workers_;
      return startsWorker;
    }
  }
  sem_post(&call_);  // without the lock, for which the worker would have to wait as soon as it is awake
  return false;
}

bool WorkQueue::hireFirst() noexcept {
  const LockGuard hold{mutex_};
  if (workers_ != 0) return false;
  ++workers_;
  return true;
}

WorkItemPtr WorkQueue::next() noexcept {
  {
    const LockGuard hold{mutex_};
    ZAL_INVARIANT(workers_ > 0);
    if (head_ != nullptr) return popLocked();
    if (isLingering_ || isClosing_ || !mayLinger()) {
      --workers_;
      return nullptr;
    }
    isLingering_ = true;
  }
  linger();
  lingering.fetch_sub(1);
  const LockGuard hold{mutex_};
  ZAL_INVARIANT(workers_ > 0);
  WorkItemPtr item = popLocked();  // another worker may have been faster
  if (!item) --workers_;
  return item;
}

void WorkQueue::endLingering() noexcept {
  {
    const LockGuard hold{mutex_};
    isClosing_ = true;
    if (!std::exchange(isLingering_, false)) return;
  }
  sem_post(&call_);
}

void WorkQueue::giveUpWorker() noexcept {
  const LockGuard hold{mutex_};
  ZAL_INVARIANT(workers_ > 0);
  if (--workers_ > 0) return;
  while (popLocked()) {
  }
}

WorkItemPtr WorkQueue::popLocked() noexcept {
  WorkItemPtr item{head_};
  if (item) head_ = std::exchange(item->next, nullptr);
  return item;
}

void WorkQueue::linger() noexcept {
  const timespec end = endOfLingering();
  int result = 0;
  do {
    result = sem_clockwait(&call_, CLOCK_MONOTONIC, &end);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return;

  const bool isCalled = [&] {
    const LockGuard hold{mutex_};
    return !std::exchange(isLingering_, false);
  }();
  while (isCalled && sem_wait(&call_) != 0) {  // the call came with the end, and is on its way
  }
}

}  // namespace zal
