// Scoped ownership of the library's own mutexes and conditions, and the annotations by which Clang checks their use.
#pragma once

#include <zal/zal_runtime.h>

#include <memory>
#include <mutex>
#include <type_traits>

#if defined(__clang__)
#define ZAL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZAL_THREAD_ANNOTATION(x)
#endif
#define ZAL_CAPABILITY(name) ZAL_THREAD_ANNOTATION(capability(name))
#define ZAL_SCOPED_CAPABILITY ZAL_THREAD_ANNOTATION(scoped_lockable)
#define ZAL_GUARDED_BY(mutex) ZAL_THREAD_ANNOTATION(guarded_by(mutex))
#define ZAL_REQUIRES(...) ZAL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZAL_EXCLUDES(...) ZAL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZAL_ACQUIRE(...) ZAL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZAL_RELEASE(...) ZAL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZAL_NO_THREAD_SAFETY_ANALYSIS ZAL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace zal {

/// Owns one mutex of the library. valid() is false when memory ran out at construction; such a mutex is never locked.
class ZAL_CAPABILITY("mutex") Mutex {
 public:
  Mutex() noexcept : handle_{ZAL_Mutex_Create()} {}
  ~Mutex() {
    if (handle_ != nullptr) ZAL_Mutex_Destroy(handle_);
  }
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  [[nodiscard]] bool valid() const noexcept { return handle_ != nullptr; }
  void lock() noexcept ZAL_ACQUIRE() { ZAL_Mutex_Lock(handle_); }
  void unlock() noexcept ZAL_RELEASE() { ZAL_Mutex_Unlock(handle_); }

 private:
  ZAL_MutexHandle handle_;
};

/// A mutex for state of the process: constant-initialised, so that no two threads race to make it and no destructor
/// ends it before the last use. The logging uses it too, since making a Mutex may log.
class ZAL_CAPABILITY("mutex") StaticMutex {
 public:
  constexpr StaticMutex() noexcept = default;
  StaticMutex(const StaticMutex&) = delete;
  StaticMutex& operator=(const StaticMutex&) = delete;

  void lock() noexcept ZAL_ACQUIRE() { mutex_.lock(); }
  void unlock() noexcept ZAL_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

/// Holds a Mutex or a StaticMutex for the length of a scope.
template <class AnyMutex>
class ZAL_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(AnyMutex& mutex) noexcept ZAL_ACQUIRE(mutex) : mutex_{mutex} { mutex_.lock(); }
  ~LockGuard() ZAL_RELEASE() { mutex_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  AnyMutex& mutex_;
};

struct CondDestroy {
  void operator()(ZAL_CondHandle cond) const noexcept { ZAL_Cond_Destroy(cond); }
};

/// Owns one condition of the library; null when memory ran out.
using CondPtr = std::unique_ptr<std::remove_pointer_t<ZAL_CondHandle>, CondDestroy>;

}  // namespace zal
