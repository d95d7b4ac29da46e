// The commands of one client that wait for a worker. A worker takes one after the other and lingers for a moment when
// there is no other: the next request of a caller who waits for each answer then costs one wake-up, instead of a job of
// libuv's pool. While there are commands that nobody takes, another worker is started. Any thread.
#pragma once

#include <semaphore.h>

#include <cstddef>
#include <memory>

#include "support/invariant.hpp"
#include "support/lock.hpp"

struct ZAL_ClientWorkItem_;

namespace zal {

struct WorkItemDelete {
  void operator()(ZAL_ClientWorkItem_* item) const noexcept;
};
using WorkItemPtr = std::unique_ptr<ZAL_ClientWorkItem_, WorkItemDelete>;

class WorkQueue {
 public:
  WorkQueue() noexcept { sem_init(&call_, 0, 0); }
  ~WorkQueue() {
    ZAL_INVARIANT(head_ == nullptr && workers_ == 0 && !isLingering_);
    sem_destroy(&call_);
  }
  WorkQueue(const WorkQueue&) = delete;
  WorkQueue& operator=(const WorkQueue&) = delete;

  [[nodiscard]] bool valid() const noexcept { return mutex_.valid(); }
  /// Adds an item. True when the caller is to start a worker, which is counted already.
  [[nodiscard]] bool push(WorkItemPtr item) noexcept;
  /// True when there is no worker: the caller is to start one, which is counted already.
  [[nodiscard]] bool hireFirst() noexcept;
  /// The next item, for which the worker may linger. Null when none comes: the worker is counted out.
  [[nodiscard]] WorkItemPtr next() noexcept;
  /// Now and from now on no worker lingers: somebody waits for the last of them.
  void endLingering() noexcept;
  /// Counts out a worker that could not be started; when there is no other, the items are freed.
  void giveUpWorker() noexcept;

 private:
  [[nodiscard]] WorkItemPtr popLocked() noexcept ZAL_REQUIRES(mutex_);
  /// Waits until push() calls, or for a moment.
  void linger() noexcept;

  Mutex mutex_;
  ZAL_ClientWorkItem_* head_ ZAL_GUARDED_BY(mutex_) = nullptr;
  ZAL_ClientWorkItem_* tail_ ZAL_GUARDED_BY(mutex_) = nullptr;
  std::size_t workers_ ZAL_GUARDED_BY(mutex_) = 0;
  bool isLingering_ ZAL_GUARDED_BY(mutex_) = false;  // a worker waits for a call; who clears it for that worker calls
  bool isClosing_ ZAL_GUARDED_BY(mutex_) = false;
  sem_t call_;
};

}  // namespace zal
