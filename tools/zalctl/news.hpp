// What the agent tells of its clients as it happens.
#pragma once

#include <functional>
#include <string>

#include "printer.hpp"
#include "wire.hpp"

namespace zalctl {

struct News {
  unsigned client;       // number of the client
  std::string kind;      // of the record, or one of the names below
  const Record* record;  // what the client sent; null when there is no record
  Tone tone;             // for people, with
  std::string line;      // the line that tells it; empty when somebody who waits for it tells it himself
  bool hasBody = false;  // and the payload belongs below the line
};

inline constexpr const char* kClientCame = "connected";
inline constexpr const char* kClientGone = "disconnected";

/// Takes one piece of news; called on the loop thread with no lock held.
using NewsSink = std::function<void(const News&)>;

/// A sink that shows everything to people.
[[nodiscard]] NewsSink showing(Printer& printer);

}  // namespace zalctl
