// Rules that answer the gateway requests of clients in place of the other party. Read once, then only looked at: any
// thread.
//
// A file of rules is a JSON array. The first rule that fits a request answers it:
//
//   {"service": "cloud", "name": "get*", "when": {"device": "gateway"}, "answer": {"found": true}, "delay": 200}
//   {"service": "cloud", "drop": true}
//
// "service" and "name" are patterns of fnmatch(3), for anything when they are missing; "when" holds members that the
// request's data must have; "answer" is any JSON, "delay" is in milliseconds, and "drop" leaves the request unanswered.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "wire.hpp"

namespace zalctl {

struct AnswerRule {
  std::string service = "*";
  std::string name = "*";
  JsonPtr when;
  std::string answer;  // JSON; empty for a request that is dropped
  std::chrono::milliseconds delay{};
};

class Answers {
 public:
  /// No rules: no request is fitted.
  Answers() = default;
  /// Throws std::runtime_error that names the file, the rule and what is wrong.
  explicit Answers(const std::string& path);

  /// The number of the first rule that fits, counted from 1; 0 when none does.
  [[nodiscard]] std::size_t find(const Record& request) const;
  [[nodiscard]] const AnswerRule& rule(std::size_t number) const { return rules_.at(number - 1); }

 private:
  std::vector<AnswerRule> rules_;
};

}  // namespace zalctl
