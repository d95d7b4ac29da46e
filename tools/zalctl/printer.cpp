#include "printer.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "wire.hpp"

namespace zalctl {
namespace {

constexpr const char* kReset = "\033[0m";
constexpr std::array<const char*, 5> kColours{"", "\033[2m", "\033[36m", "\033[32m", "\033[31m"};  // by Tone

bool wantsColours() {
  const char* terminal = std::getenv("TERM");
  const bool isDumb = terminal == nullptr || std::string_view{terminal} == "dumb";
  return isatty(STDOUT_FILENO) == 1 && !isDumb && std::getenv("NO_COLOR") == nullptr;
}

bool isControl(unsigned codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0);
}

struct Character {
  std::size_t length;  // of its UTF-8 sequence; 0 when the text begins with none
  unsigned codePoint;
};

Character firstCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {1, lead};
  const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return {0, 0};
  unsigned codePoint = lead & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0U) != 0x80) return {0, 0};
    codePoint = codePoint << 6U | (byte(i) & 0x3fU);
  }
  constexpr std::array<unsigned, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = codePoint >= 0xd800 && codePoint <= 0xdfff;
  const bool isValid = codePoint >= kSmallest[length] && codePoint <= 0x10ffff && !isSurrogate;
  return {isValid ? length : 0, codePoint};
}

std::string scalarText(const cJSON& node) {
  const std::unique_ptr<char, CFree> text{cJSON_PrintUnformatted(&node)};
  return text ? printable(text.get()) : std::string{"?"};
}

std::string keyText(const cJSON& member) {
  const JsonPtr key{cJSON_CreateStringReference(member.string)};
  return key ? scalarText(*key) : std::string{"?"};
}

void appendIndented(std::string& out, const cJSON& node, std::size_t level) {
  const bool isObject = cJSON_IsObject(&node) != 0;
  if ((!isObject && cJSON_IsArray(&node) == 0) || node.child == nullptr) {
    out += scalarText(node);
    return;
  }
  out += isObject ? '{' : '[';
  for (const cJSON* member = node.child; member != nullptr; member = member->next) {
    out += member == node.child ? "\n" : ",\n";
    out.append(2 * (level + 1), ' ');
    if (isObject) out += keyText(*member) + ": ";
    appendIndented(out, *member, level + 1);
  }
  out += '\n';
  out.append(2 * level, ' ');
  out += isObject ? '}' : ']';
}

/// `body` with every line four blanks further to the right.
std::string shifted(std::string_view body) {
  constexpr std::string_view kShift = "    ";
  std::string out{kShift};
  for (const char c : body) {
    out += c;
    if (c == '\n') out += kShift;
  }
  return out + '\n';
}

}  // namespace

Printer::Printer() : colours_{wantsColours()}, interactive_{isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1} {}

void Printer::print(Tone tone, std::string_view line, std::string_view body) {
  const bool isColoured = colours_ && tone != Tone::kPlain;
  std::string text;
  if (isColoured) text += kColours.at(static_cast<std::size_t>(tone));
  text += line;
  if (isColoured) text += kReset;
  text += '\n';
  if (!body.empty()) text += shifted(body);

  const std::lock_guard hold{mutex_};
  writeLocked(stdout, text);
}

void Printer::error(std::string_view line) {
  const std::string text = "zalctl: " + printable(line) + '\n';
  const std::lock_guard hold{mutex_};
  writeLocked(stderr, text);
}

bool Printer::isBroken() {
  const std::lock_guard hold{mutex_};
  return std::ferror(stdout) != 0;
}

void Printer::hold(std::function<void()> wake) {
  const std::lock_guard hold{mutex_};
  wake_ = std::move(wake);
}

bool Printer::showHeld() {
  const std::lock_guard hold{mutex_};
  if (held_.empty()) return false;
  const std::string text = "\r\033[K" + std::exchange(held_, {});
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
  return true;
}

void Printer::release() {
  const std::lock_guard hold{mutex_};
  wake_ = nullptr;
  writeLocked(stdout, std::exchange(held_, {}));
}

void Printer::prompt() {
  if (!interactive_) return;
  const std::lock_guard hold{mutex_};
  promptStands_ = true;
  writeLocked(stdout, {});
}

void Printer::promptTaken() {
  const std::lock_guard hold{mutex_};
  promptStands_ = false;
}

void Printer::writeLocked(std::FILE* stream, std::string_view text) {
  if (wake_) {
    held_ += text;
    return wake_();
  }
  if (promptStands_) std::fputs("\r\033[K", stdout);
  std::fflush(stdout);
  std::fwrite(text.data(), 1, text.size(), stream);
  if (promptStands_) std::fputs("> ", stdout);
  std::fflush(stdout);
}

std::string printable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    auto [length, codePoint] = firstCharacter(text);
    if (length == 0 || isControl(codePoint)) {
      std::array<char, 5> escape{};
      std::snprintf(escape.data(), escape.size(), "\\x%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(text[0])));
      out += escape.data();
      length = 1;  // what follows in its sequence is escaped in turn
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return out;
}

std::string jsonLine(const cJSON& node) {
  const std::unique_ptr<char, CFree> printed{cJSON_PrintUnformatted(&node)};
  if (!printed) throw std::bad_alloc{};
  std::string out;
  for (std::string_view text{printed.get()}; !text.empty();) {
    const auto [length, codePoint] = firstCharacter(text);
    if (length == 0 || isControl(codePoint)) {
      std::array<char, 7> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", length == 0 ? 0xfffdU : codePoint & 0xffffU);
      out += escape.data();
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out;
}

std::string indented(const cJSON& node) {
  std::string out;
  appendIndented(out, node, 0);
  return out;
}

std::string payloadText(std::string_view payload) {
  if (payload.empty()) return {};
  const JsonPtr json = parsePayload(payload);
  return json ? indented(*json) : "not JSON: " + printable(payload);
}

}  // namespace zalctl
