// What a scenario is: a run through a family of the library's functions, which checks every result. It runs with an
// allocation failing somewhere, and then again with memory.
#pragma once

#include <cjson/cJSON.h>
#include <zal/zal.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>

#include "support/child.hpp"
#include "support/fault.hpp"

namespace faults {

struct Scenario {
  const char* name;
  void (*run)();
  bool mayEndInEngine = false;  // the engine's functions have no other way
  bool isQuick = true;          // part of the short form
  int forgotten = 0;            // descriptors that libuv leaves open when making a loop fails
};

/// The result of a call, which is its failure only when an allocation has failed meanwhile.
template <class Call, class Failure>
auto attempt(const char* what, Call call, Failure failure) {
  const std::uint64_t before = strikeCount();
  const auto result = call();
  if (result == failure && strikeCount() == before) wrong("failed with memory at hand: ", what);
  return result;
}

inline void require(bool condition, const char* what) {
  if (!condition) wrong("does not hold: ", what);
}

template <auto release>
struct Release {
  template <class Pointer>
  void operator()(Pointer pointer) const noexcept {
    release(pointer);
  }
};
template <class Handle, auto release>
using Owned = std::unique_ptr<std::remove_pointer_t<Handle>, Release<release>>;

using Text = Owned<char*, std::free>;
using Node = Owned<cJSON*, cJSON_Delete>;
using Object = Owned<ZAL_ObjectHandle, ZAL_Object_Destroy>;
using Array = Owned<ZAL_ObjectHandle, ZAL_Array_Destroy>;
using Message = Owned<ZAL_MessageHandle, ZAL_Message_Destroy>;

// One for each family.
void runtime();
void files();
void uris();
void logging();
void objects();
void arrays();
void filters();
void messages();
void documents();
void engine();
void records();
void device();
void network();
void loops();
void transport();
void clients();

}  // namespace faults

/// A call with its documented failure.
#define FAULTS_ATTEMPT(failure, expression) \
  ::faults::attempt(                        \
      #expression, [&] { return expression; }, failure)
#define FAULTS_REQUIRE(condition) ::faults::require(condition, #condition)
