// What was asked of the client, and that each question is answered once, by the connection on which it was asked.
#pragma once

#include <map>
#include <string>

#include "tests/support/wire_image.hpp"

namespace zal::campaign {

/// The request id of what a client asks of itself; the agent gives it to no request.
constexpr int kOwnRequestId = 65535;

struct Tally {
  long answered = 0;    ///< with a record
  long unserved = 0;    ///< with an image without records
  long abandoned = 0;   ///< requests whose connection ended first
  long ownAnswers = 0;  ///< to what the client asked of itself
};

class Ledger {
 public:
  /// Before a request is sent: the id to give it. Its answer must echo its service and name, and tell the id in its
  /// data if the method was told it.
  int ask(const std::string& service, const std::string& name, bool isTold = true);
  /// Before a request is sent that must be answered with an image without records.
  int askInVain();
  /// The connection has ended, with what was asked on it.
  void abandon();

  /// Takes an image that a client sent, if it is an answer.
  bool take(const test::WireImage& image);
  [[nodiscard]] bool isSettled() const noexcept { return open_.empty() && openInVain_ == 0; }
  [[nodiscard]] std::string missing() const;
  [[nodiscard]] const Tally& tally() const noexcept { return tally_; }

 private:
  struct Asked {
    std::string service;
    std::string name;
    bool isTold;
  };

  int nextId();

  std::map<int, Asked> open_;
  long openInVain_ = 0;
  int lastId_ = 0;
  Tally tally_;
};

}  // namespace zal::campaign
