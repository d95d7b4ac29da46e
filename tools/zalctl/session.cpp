#include "session.hpp"

#include <algorithm>

namespace zalctl {

std::string methodOf(std::string_view name) {
  return std::string{name.substr(0, name.find_first_of("/?"))};
}

bool Session::offers(const std::string& service, const std::string& method) const {
  return offers_.count({service, method}) != 0;
}

bool Session::hasOpen(std::uint16_t id) const {
  return std::any_of(calls_.begin(), calls_.end(), [&](const OpenCall& call) { return call.id == id; });
}

void Session::open(OpenCall call) {
  constexpr std::size_t kMaxOpen = 2048;
  const auto isLate = [](const OpenCall& other) { return !other.done; };
  if (calls_.size() >= kMaxOpen) static_cast<void>(take(std::find_if(calls_.begin(), calls_.end(), isLate)));
  calls_.push_back(std::move(call));
}

void Session::abandon(std::uint16_t id) {
  for (OpenCall& call : calls_) {
    if (call.id == id) call.done = nullptr;
  }
}

std::optional<OpenCall> Session::close(std::uint16_t id) {
  return take(std::find_if(calls_.begin(), calls_.end(), [&](const OpenCall& call) { return call.id == id; }));
}

std::optional<OpenCall> Session::closeNameless() {
  const auto isUnknown = [&](const OpenCall& call) { return !offers(call.service, methodOf(call.name)); };
  const auto unknown = std::find_if(calls_.begin(), calls_.end(), isUnknown);
  return take(unknown != calls_.end() ? unknown : calls_.begin());
}

std::optional<OpenCall> Session::take(std::vector<OpenCall>::iterator call) {
  if (call == calls_.end()) return std::nullopt;
  OpenCall taken = std::move(*call);
  calls_.erase(call);
  return taken;
}

}  // namespace zalctl
