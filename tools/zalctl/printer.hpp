// Output for people: one block at a time whichever thread prints it, colours only on a terminal, and nothing that a
// peer sends reaches the terminal unescaped. Any thread.
#pragma once

#include <cjson/cJSON.h>

#include <cstdio>
#include <functional>
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
  /// True once the reader of standard output has gone away.
  [[nodiscard]] bool isBroken();
  /// True when there is somebody at a terminal to type.
  [[nodiscard]] bool isInteractive() const { return interactive_; }
  /// Keeps what is printed from now on back, and has `wake` called for it, so that an editor of the line at the prompt
  /// shows it when it can.
  void hold(std::function<void()> wake);
  /// Clears the line and prints above it what was kept back; false when there was nothing.
  bool showHeld();
  /// Prints again at once.
  void release();
  /// Shows the prompt, on a terminal only; what is printed while it stands goes above it.
  void prompt();
  /// The line at the prompt was entered.
  void promptTaken();

 private:
  void writeLocked(std::FILE* stream, std::string_view text);

  std::mutex mutex_;
  const bool colours_;
  const bool interactive_;
  // Under mutex_.
  bool promptStands_ = false;
  std::function<void()> wake_;  // while an editor holds the line
  std::string held_;
};

/// The text with control characters and whatever is no UTF-8 as \xNN.
[[nodiscard]] std::string printable(std::string_view text);
/// JSON on one line that is UTF-8 without control characters, whatever bytes its texts hold.
[[nodiscard]] std::string jsonLine(const cJSON& node);
/// JSON over several lines, two blanks a level.
[[nodiscard]] std::string indented(const cJSON& node);
/// A payload of any bytes as it is shown: indented JSON, or the bytes themselves when they are none.
[[nodiscard]] std::string payloadText(std::string_view payload);

}  // namespace zalctl
