#include "fuzz/campaigns/chaos/ledger.hpp"

#include <zal/zal_ipccommand.h>

#include "fuzz/campaigns/support/endpoint.hpp"

namespace zal::campaign {

int Ledger::nextId() {
  lastId_ = (lastId_ + 1) % kOwnRequestId;
  return lastId_;
}

int Ledger::ask(const std::string& service, const std::string& name, bool isTold) {
  const int id = nextId();
  open_[id] = {service, name, isTold};
  return id;
}

int Ledger::askInVain() {
  ++openInVain_;
  return nextId();
}

void Ledger::abandon() {
  tally_.abandoned += static_cast<long>(open_.size()) + openInVain_;
  open_.clear();
  openInVain_ = 0;
}

bool Ledger::take(const test::WireImage& image) {
  if (image.empty()) {
    if (--openInVain_ < 0) throw Failure{"an image without records that nobody asked for"};
    ++tally_.unserved;
    return true;
  }
  const test::WireRecord& record = image.front();
  if (record.code != ZAL_IPC_CMD_RESPONSE) return false;
  if (image.size() != 1) throw Failure{"an answer beside other records"};
  if (record.requestId == kOwnRequestId) {
    ++tally_.ownAnswers;
    return true;
  }
  const auto asked = open_.find(record.requestId);
  const std::string what = record.service + "/" + record.name + " " + std::to_string(record.requestId);
  if (asked == open_.end()) throw Failure{"a second answer, or one to another connection: " + what};
  if (asked->second.service != record.service || asked->second.name != record.name)
    throw Failure{"the answer does not echo its request: " + what};
  if (asked->second.isTold &&
      record.payload.find("\"id\":" + std::to_string(record.requestId) + "}") == std::string::npos)
    throw Failure{"the answer of another request: " + what + " " + record.payload};
  open_.erase(asked);
  ++tally_.answered;
  return true;
}

std::string Ledger::missing() const {
  std::string text = std::to_string(open_.size()) + " answers and " + std::to_string(openInVain_) +
                     " images without records are missing";
  if (!open_.empty()) text += ", the first to " + open_.begin()->second.service + "/" + open_.begin()->second.name;
  return text;
}

}  // namespace zal::campaign
