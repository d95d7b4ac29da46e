// Jobs: how the client's work reaches the worker threads, and how teardown knows that the last of it has ended.
#include <zal/zal_client.h>

#include <utility>

#include "base/zal_client/client.hpp"
#include "support/log.hpp"

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
  ZAL_INVARIANT(!isInJob);
  isInJob = true;
  job.work(request);
  isInJob = false;
  job.client->jobs.end();
}

/// Worker thread: does what there is to do. After a while other jobs of the pool get their turn.
void runWorker(uv_work_t* request) noexcept {
  constexpr int kItemsInARow = 64;
  auto& client = *static_cast<ZAL_ClientHandle_*>(request->data);
  for (int done = 0; done < kItemsInARow || !postJob(client, runWorker, &client); ++done) {
    WorkItemPtr item = client.work.next();
    if (!item) return;
    work(std::move(item));
  }
}

/// Starts a worker that is counted already.
void startWorker(ZAL_ClientHandle_& client) noexcept {
  if (!postJob(client, runWorker, &client)) client.work.giveUpWorker();
}

}  // namespace

bool JobCounter::begin() noexcept {
  const LockGuard hold{mutex_};
  if (closed_) return false;
  ++count_;
  return true;
}

void JobCounter::end() noexcept {
  // Signalled under the lock: the waiter frees this object as soon as it can take the lock and reads 0.
  const LockGuard hold{mutex_};
  ZAL_INVARIANT(count_ > 0);
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
  ZAL_INVARIANT(item->client != nullptr && item->command != nullptr);
  ZAL_ClientHandle_& client = *item->client;
  if (client.work.push(std::move(item))) startWorker(client);
}

void readyWorker(ZAL_ClientHandle_& client) noexcept {
  if (client.work.hireFirst()) startWorker(client);
}

bool runsJob() noexcept {
  return isInJob;
}

}  // namespace zal
