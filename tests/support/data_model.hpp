// Owners of the data model's handles and texts, and the two limits that its tests care about: time and stack.
#pragma once

#include <pthread.h>
#include <zal/zal_object.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

namespace zal::test {

struct HandleDestroy {
  void operator()(ZAL_ObjectHandle handle) const noexcept { ZAL_Array_Destroy(handle); }  // takes every kind
};
/// A top handle or a view.
using HandlePtr = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, HandleDestroy>;

inline HandlePtr parse(const std::string& json) {
  return HandlePtr{ZAL_Object_CreateFromJson(json.data(), json.size())};
}

/// The text, which is freed; "(null)" for a null one.
inline std::string take(char* text) {
  const std::unique_ptr<char, decltype(&std::free)> owner{text, &std::free};
  return text == nullptr ? "(null)" : text;
}

inline std::string textOf(ZAL_ObjectHandle handle) {
  return take(ZAL_Object_DumpOutput(handle));
}

/// What `body` costs this process, which other programs on the machine do not change.
inline std::clock_t cpuTime(const std::function<void()>& body) {
  const std::clock_t start = std::clock();
  body();
  return std::clock() - start;
}

/// Runs `body` on a thread with as little stack as a worker may have.
inline void onSmallStack(std::function<void()> body) {
  std::size_t size = 256 * 1024;
#ifdef __SANITIZE_THREAD__
  size += 1024 * 1024;  // the sanitizer keeps its own state of each thread there
#endif
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size);
  pthread_t thread{};
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  if (pthread_create(&thread, &attributes, run, &body) != 0) std::abort();
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace zal::test
