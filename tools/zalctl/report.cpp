#include "report.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <new>
#include <utility>

namespace zalctl {
namespace {

struct OutcomeText {
  Outcome outcome;
  const char* name;  // in JSON
  const char* text;  // for people, between "no reply to SERVICE NAME" and its end
};
constexpr std::array<OutcomeText, 6> kOutcomes{{{Outcome::kAnswered, "answered", ""},
                                                {Outcome::kNoSuchMethod, "no-such-method", ""},
                                                {Outcome::kNoReply, "no-reply", " within "},
                                                {Outcome::kDisconnected, "disconnected", ": the client disconnected"},
                                                {Outcome::kNotConnected, "not-connected", ": no client is connected"},
                                                {Outcome::kInterrupted, "interrupted", ": interrupted"}}};
static_assert(kOutcomes[static_cast<std::size_t>(Outcome::kInterrupted)].outcome == Outcome::kInterrupted);

std::string decimal(double number, int digits = 0) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, number);
  return text.data();
}

Outcome outcomeOf(const cJSON& result) {
  const std::string name = textIn(result, "outcome");
  const auto* found =
      std::find_if(kOutcomes.begin(), kOutcomes.end(), [&](const OutcomeText& o) { return o.name == name; });
  return found != kOutcomes.end() ? found->outcome : Outcome::kNoReply;
}

void addPayload(cJSON& object, std::string_view payload) {
  if (payload.empty()) return;
  if (JsonPtr json = parsePayload(payload)) return add(object, "payload", std::move(json));
  add(object, "text", payload);
}

/// The local time of day.
std::string clockText(double seconds) {
  constexpr double kLatest = sizeof(std::time_t) > 4 ? 1e11 : 2147483647.0;
  seconds = std::clamp(seconds, 0.0, kLatest);
  const auto whole = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&whole, &local);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  const auto milliseconds = static_cast<int>((seconds - std::floor(seconds)) * 1000);
  return text.data() + ('.' + std::to_string(1000 + milliseconds).substr(1));
}

Tone toneOf(std::string_view kind) {
  if (kind == kMalformed || kind == kEmpty) return Tone::kBad;
  return kind == "response" || kind == "gateway-response" ? Tone::kGood : Tone::kNews;
}

std::string bodyOf(const cJSON& object) {
  if (const cJSON* payload = cJSON_GetObjectItemCaseSensitive(&object, "payload")) return indented(*payload);
  const std::string text = textIn(object, "text");
  return text.empty() ? text : "not JSON: " + text;
}

}  // namespace

JsonPtr newObject() {
  JsonPtr object{cJSON_CreateObject()};
  if (!object) throw std::bad_alloc{};
  return object;
}

void add(cJSON& object, const char* key, JsonPtr value) {
  if (cJSON_AddItemToObject(&object, key, value.get()) == 0) throw std::bad_alloc{};
  static_cast<void>(value.release());  // the object's now
}

void add(cJSON& object, const char* key, std::string_view text) {
  add(object, key, JsonPtr{cJSON_CreateString(printable(text).c_str())});
}

void add(cJSON& object, const char* key, double number) {
  add(object, key, JsonPtr{cJSON_CreateNumber(number)});
}

void add(cJSON& object, const Record& record) {
  add(object, "service", record.service);
  add(object, "name", record.name);
  if (record.requestId != 0) add(object, "id", record.requestId);
  addPayload(object, record.payload);
}

JsonPtr toJson(const CallResult& result) {
  JsonPtr object = newObject();
  add(*object, "outcome", kOutcomes.at(static_cast<std::size_t>(result.answer.outcome)).name);
  add(*object, "service", result.service);
  add(*object, "name", result.name);
  add(*object, "milliseconds", result.answer.took.count());
  addPayload(*object, result.answer.payload);
  return object;
}

JsonPtr toJson(const News& news) {
  JsonPtr object = newObject();
  add(*object, "time", timeNow());
  add(*object, "client", news.client);
  add(*object, "kind", news.kind);
  if (news.record != nullptr) add(*object, *news.record);
  return object;
}

std::string textIn(const cJSON& object, const char* key) {
  const char* text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(&object, key));
  return text != nullptr ? text : "";
}

double numberIn(const cJSON& object, const char* key) {
  const cJSON* member = cJSON_GetObjectItemCaseSensitive(&object, key);
  return cJSON_IsNumber(member) != 0 ? cJSON_GetNumberValue(member) : 0;
}

std::string counted(std::size_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string configurationSent(std::size_t clients) {
  return "configuration remembered, sent to " + counted(clients, "client");
}

double timeNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) / 1000;
}

void showResult(Printer& printer, const cJSON& result) {
  const Outcome outcome = outcomeOf(result);
  const std::string title = textIn(result, "service") + ' ' + textIn(result, "name");
  const std::string took = decimal(numberIn(result, "milliseconds"), 1) + " ms";
  if (outcome == Outcome::kAnswered) {
    return printer.print(Tone::kGood, "reply to " + title + " after " + took, bodyOf(result));
  }
  if (outcome == Outcome::kNoSuchMethod) {
    return printer.print(Tone::kBad, "no such method: " + title + " (answered after " + took + ')');
  }
  std::string line = "no reply to " + title + kOutcomes.at(static_cast<std::size_t>(outcome)).text;
  if (outcome == Outcome::kNoReply) line += decimal(numberIn(result, "milliseconds")) + " ms";
  printer.print(Tone::kBad, line);
}

void showClient(Printer& printer, const cJSON& client) {
  std::string text = "client " + decimal(numberIn(client, "client"));
  const cJSON* subscription = nullptr;
  cJSON_ArrayForEach(subscription, cJSON_GetObjectItemCaseSensitive(&client, "subscriptions")) {
    text += "\n  " + textIn(*subscription, "service") + ' ' + textIn(*subscription, "method");
  }
  printer.print(Tone::kPlain, text);
}

void showMessage(Printer& printer, const cJSON& message) {
  const std::string kind = textIn(message, "kind");
  const std::string direction = textIn(message, "to");
  std::string line = clockText(numberIn(message, "time")) + " client " + decimal(numberIn(message, "client")) + ' ';
  if (!direction.empty()) line += direction == "client" ? "<- " : "-> ";
  line += kind;
  for (const char* key : {"service", "name"}) {
    if (const std::string text = textIn(message, key); !text.empty()) line += ' ' + text;
  }
  if (const double id = numberIn(message, "id"); id != 0) line += " (id " + decimal(id) + ')';
  if (const double bytes = numberIn(message, "bytes"); bytes != 0) line += ", " + decimal(bytes) + " bytes";
  if (const double took = numberIn(message, "milliseconds"); took != 0) line += " after " + decimal(took, 3) + " ms";
  printer.print(toneOf(kind), line, bodyOf(message));
}

Status statusOf(const cJSON& result) {
  if (outcomeOf(result) != Outcome::kAnswered) return Status::kUnanswered;
  const cJSON* payload = cJSON_GetObjectItemCaseSensitive(&result, "payload");
  return payload != nullptr && isError(*payload) ? Status::kRefused : Status::kDone;
}

}  // namespace zalctl
