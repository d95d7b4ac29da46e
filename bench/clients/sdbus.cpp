// sd-bus, peer to peer: a method that answers on the thread of the bus, and signals.
#include <systemd/sd-bus.h>

#include <string>

#include "support/work.hpp"

namespace {

int onCall(sd_bus_message* message, void*, sd_bus_error*) {
  const char* text = nullptr;
  if (const int result = sd_bus_message_read(message, "s", &text); result < 0) return result;
  return sd_bus_reply_method_return(message, "s", ('r' + bench::answer(text)).c_str());
}

int onEvents(sd_bus_message* message, void*, sd_bus_error*) {
  const char* text = nullptr;
  if (const int result = sd_bus_message_read(message, "s", &text); result < 0) return result;
  const int count = bench::eventsWanted(text + 1);
  sd_bus* bus = sd_bus_message_get_bus(message);
  for (int i = 0; i < count; ++i) {
    const std::string event = 'v' + bench::eventText(i);
    const int result = sd_bus_emit_signal(bus, "/bench", "bench.Client", "Event", "s", event.c_str());
    if (result < 0) return result;
    if (i % 64 == 63) sd_bus_flush(bus);  // otherwise its queue overflows
  }
  return 1;
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Call", "s", "s", onCall, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Events", "s", "", onEvents, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_SIGNAL("Event", "s", 0),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main(int, char** argv) {
  sd_bus* bus = nullptr;
  if (sd_bus_new(&bus) < 0 || sd_bus_set_address(bus, ("unix:path=" + std::string{argv[1]}).c_str()) < 0 ||
      sd_bus_set_anonymous(bus, 1) < 0 || sd_bus_start(bus) < 0)
    return 1;
  if (sd_bus_add_object_vtable(bus, nullptr, "/bench", "bench.Client", kMethods, nullptr) < 0) return 1;
  for (;;) {
    const int result = sd_bus_process(bus, nullptr);
    if (result < 0) return 1;
    if (result == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return 1;
  }
}
