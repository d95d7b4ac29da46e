// Mutexes for the library and its clients: libuv's lock and the thread that holds it. Any thread.
#include <zal/zal_runtime.h>

#include <pthread.h>

#include <memory>
#include <new>

#include "support/log.hpp"

struct ZAL_MutexHandle_ {
  uv_mutex_t lock;
  pthread_t owner;  ///< 0 when free; for a debugger, nothing here reads it
};

ZAL_MutexHandle ZAL_Mutex_Create(void) noexcept {
  std::unique_ptr<ZAL_MutexHandle_> mutex{new (std::nothrow) ZAL_MutexHandle_{}};
  if (mutex == nullptr || uv_mutex_init(&mutex->lock) != 0) {
    ZAL_LOG(ZAL_LOG_ERROR, "Unable to allocate memory for Mutex ");
    return nullptr;
  }
  return mutex.release();
}

void ZAL_Mutex_Lock(ZAL_MutexHandle mutex) noexcept {
  uv_mutex_lock(&mutex->lock);
  mutex->owner = pthread_self();
}

void ZAL_Mutex_Unlock(ZAL_MutexHandle mutex) noexcept {
  mutex->owner = 0;
  uv_mutex_unlock(&mutex->lock);
}

void ZAL_Mutex_Destroy(ZAL_MutexHandle mutex) noexcept {
  if (mutex == nullptr) return;
  uv_mutex_destroy(&mutex->lock);
  delete mutex;
}
