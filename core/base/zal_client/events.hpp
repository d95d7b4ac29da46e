// One event's parameter in a private copy of the configuration's event settings.
#pragma once

#include "base/zal_client/client.hpp"

namespace zal {

struct ArrayDestroy {
  void operator()(ZAL_ObjectHandle array) const noexcept { ZAL_Array_Destroy(array); }
};
using ArrayPtr = std::unique_ptr<std::remove_pointer_t<ZAL_ObjectHandle>, ArrayDestroy>;

class EventSettings {
 public:
  EventSettings(ZAL_ClientHandle_* client, const char* event, const char* parameter) noexcept;

  /// False when there is no connection, no configuration or no member "events" in it.
  [[nodiscard]] bool available() const noexcept { return events_ != nullptr; }
  [[nodiscard]] ZAL_ObjectHandle events() const noexcept { return events_.get(); }
  /// The parameter's member path below the events.
  [[nodiscard]] const char* path() const noexcept { return path_; }
  /// A view of an element of the parameter, an array of objects; null when either is missing. It borrows from this.
  [[nodiscard]] ObjectPtr element(std::int32_t index) const noexcept;

 private:
  ObjectPtr events_;
  char path_[256]{};
};

}  // namespace zal
