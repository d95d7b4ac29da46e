// Jobs: how the client's work reaches the worker threads, and how teardown knows that the last of it has ended.
#include <zal/zal_client.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "base/zal_client/client.hpp"
#include "base/zal_eventloop.hpp"
#include "support/log.hpp"
#include "support/number.hpp"

namespace zal {

namespace {

struct Job {
  ZAL_ClientHandle_* client;
  uv_work_cb work;
  void* data;
};

thread_local bool isInJob = false;

/// Worker thread. The client may be freed as soon as its job has been counted out.
void runJob(uv_work_t* request) noexcept {
  const Job job = *std::unique_ptr<Job>{static_cast<Job*>(request->data)};
  request->data = job.data;
  isInJob = true;
  job.work(request);
  isInJob = false;
  job.client->jobs.end();
}

/// How many workers there can be at a time, as libuv reads it.
std::size_t readPoolSize() noexcept {
  constexpr int kDefault = 4;
  constexpr int kMost = 1024;
  const char* const wish = std::getenv("UV_THREADPOOL_SIZE");
  return static_cast<std::size_t>(wish == nullptr ? kDefault : std::clamp(readInt32(wish), 1, kMost));
}

/// Worker thread: does what there is to do. After a while other jobs of the pool get their turn. The last answer needs
/// no wake-up of its own, since the end of the job is one.
void runWorker(uv_work_t* request) noexcept {
  constexpr int kItemsInARow = 64;
  auto& client = *static_cast<ZAL_ClientHandle_*>(request->data);
  bool owesWake = false;
  for (int done = 0;; ++done) {
    if (done >= kItemsInARow && postJob(client, runWorker, &client)) break;
    WorkItemPtr item = client.work.pop();
    if (!item) break;
    if (owesWake) ZAL_EventLoop_AsyncSend(client.loop);
    owesWake = work(std::move(item));
  }
  if (owesWake) sendAsyncWithJobEnd(client.loop);
}

}  // namespace

WorkItemPtr WorkQueue::popLocked() noexcept {
  WorkItemPtr item{head_};
  if (item) head_ = std::exchange(item->next, nullptr);
  return item;
}

bool WorkQueue::push(WorkItemPtr item) noexcept {
  const LockGuard hold{mutex_};
  ZAL_ClientWorkItem_* const added = item.release();
  (head_ == nullptr ? head_ : tail_->next) = added;
  tail_ = added;
  static const std::size_t mostWorkers = readPoolSize();
  if (workers_ >= mostWorkers) return false;
  ++workers_;
  return true;
}

WorkItemPtr WorkQueue::pop() noexcept {
  const LockGuard hold{mutex_};
  WorkItemPtr item = popLocked();
  if (!item) --workers_;
  return item;
}

void WorkQueue::giveUpWorker() noexcept {
  const LockGuard hold{mutex_};
  if (--workers_ > 0) return;
  while (popLocked()) {
  }
}

bool JobCounter::begin() noexcept {
  const LockGuard hold{mutex_};
  if (closed_) return false;
  ++count_;
  return true;
}

void JobCounter::end() noexcept {
  // Signalled under the lock: the waiter frees this object as soon as it can take the lock and reads 0.
  const LockGuard hold{mutex_};
  --count_;
  if (count_ == 0) ZAL_Cond_Signal(idle_.get());
}

void JobCounter::closeAndWait() noexcept {
  for (;;) {
    {
      const LockGuard hold{mutex_};
      closed_ = true;
      if (count_ == 0) return;
    }
    constexpr std::uint64_t kLong = 3'600'000;
    static_cast<void>(ZAL_Cond_Wait(idle_.get(), kLong));  // the count decides, whatever ended the wait
  }
}

bool postJob(ZAL_ClientHandle_& client, uv_work_cb work, void* data) noexcept {
  if (!client.jobs.begin()) return false;
  std::unique_ptr<Job> job{new (std::nothrow) Job{&client, work, data}};
  if (job && ZAL_EventLoop_Work(client.loop, runJob, job.get()) == 0) {
    static_cast<void>(job.release());  // runJob frees it
    return true;
  }
  client.jobs.end();
  ZAL_LOG(ZAL_LOG_ERROR, "unable to queue a job\n");
  return false;
}

void postWorkItem(WorkItemPtr item) noexcept {
  ZAL_ClientHandle_& client = *item->client;
  if (client.work.push(std::move(item)) && !postJob(client, runWorker, &client)) client.work.giveUpWorker();
}

bool runsJob() noexcept {
  return isInJob;
}

}  // namespace zal
