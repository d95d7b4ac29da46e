// What commands print: results and messages as JSON objects for programs, one a line, and the same for people.
// Nothing here keeps state; any thread.
#pragma once

#include <string>
#include <string_view>

#include "agent.hpp"
#include "news.hpp"
#include "printer.hpp"
#include "status.hpp"
#include "wire.hpp"

namespace zalctl {

/// A call with its answer.
struct CallResult {
  std::string service;
  std::string name;
  Answer answer;
};

/// An object to be filled. All of these throw std::bad_alloc when memory runs out.
[[nodiscard]] JsonPtr newObject();
void add(cJSON& object, const char* key, JsonPtr value);
/// A text of any bytes, made printable.
void add(cJSON& object, const char* key, std::string_view text);
void add(cJSON& object, const char* key, double number);
/// The members service, name, id and payload, those that are there. A payload that is no JSON becomes the member text.
void add(cJSON& object, const Record& record);

[[nodiscard]] JsonPtr toJson(const CallResult& result);
[[nodiscard]] JsonPtr toJson(const News& news);

/// A member's text, empty when there is none; a member's number, 0 when there is none.
[[nodiscard]] std::string textIn(const cJSON& object, const char* key);
[[nodiscard]] double numberIn(const cJSON& object, const char* key);

inline constexpr const char* kNoClient = "no client is connected";
[[nodiscard]] std::string counted(std::size_t count, const char* what);
[[nodiscard]] std::string configurationSent(std::size_t clients);

/// The seconds since 1970 now.
[[nodiscard]] double timeNow();

/// Shows the result of a call to people.
void showResult(Printer& printer, const cJSON& result);
/// Shows a client, as the desk lists it, with its subscriptions.
void showClient(Printer& printer, const cJSON& client);
/// Shows news, or a message that passed by.
void showMessage(Printer& printer, const cJSON& message);
/// The exit status that the result of a call means.
[[nodiscard]] Status statusOf(const cJSON& result);

}  // namespace zalctl
