// Output for people: one block at a time whichever thread prints it, colours only on a terminal, and nothing that a
// peer sends reaches the terminal unescaped. Any thread.
#pragma once

#include <cjson/cJSON.h>

#include <mutex>
#include <string>
#include <string_view>

namespace zalctl {

enum class Tone { kPlain, kDim, kNews, kGood, kBad };

class Printer {
 public:
  Printer();

  /// A line on standard output, then `body`, if there is any, indented below it.
  void print(Tone tone, std::string_view line, std::string_view body = {});
  /// A line on standard error.
  void error(std::string_view line);
  /// The prompt, on a terminal only.
  void prompt();

 private:
  std::mutex mutex_;
  bool colours_;
  bool interactive_;
};

/// The text with control characters and whatever is no UTF-8 as \xNN.
[[nodiscard]] std::string printable(std::string_view text);
/// JSON over several lines, two blanks a level.
[[nodiscard]] std::string indented(const cJSON& node);
/// A payload of any bytes as it is shown: indented JSON, or the bytes themselves when they are none.
[[nodiscard]] std::string payloadText(std::string_view payload);

}  // namespace zalctl
