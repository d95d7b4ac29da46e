#include "answers.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace zalctl {
namespace {

[[noreturn]] void fail(const std::string& why) {
  throw std::runtime_error{why};
}

void readText(const cJSON& value, std::string& text) {
  const char* found = cJSON_GetStringValue(&value);
  if (found == nullptr) fail("is no text");
  text = found;
}

void readService(const cJSON& value, AnswerRule& rule) {
  readText(value, rule.service);
}
void readName(const cJSON& value, AnswerRule& rule) {
  readText(value, rule.name);
}

void readWhen(const cJSON& value, AnswerRule& rule) {
  if (cJSON_IsObject(&value) == 0) fail("is no object");
  rule.when.reset(cJSON_Duplicate(&value, 1));
}

void readAnswer(const cJSON& value, AnswerRule& rule) {
  const std::unique_ptr<char, CFree> text{cJSON_PrintUnformatted(&value)};
  if (text) rule.answer = text.get();
}

void readDelay(const cJSON& value, AnswerRule& rule) {
  constexpr double kDay = 24 * 3600 * 1000.0;
  if (cJSON_IsNumber(&value) == 0 || value.valuedouble < 0 || value.valuedouble > kDay) fail("is no time");
  rule.delay = std::chrono::milliseconds{static_cast<int>(value.valuedouble)};
}

void readDrop(const cJSON& value, AnswerRule& /*rule*/) {
  if (cJSON_IsTrue(&value) == 0) fail("can only be true");
}

struct Member {
  const char* name;
  void (*read)(const cJSON& value, AnswerRule& rule);
};
constexpr std::array<Member, 6> kMembers{{{"service", readService},
                                          {"name", readName},
                                          {"when", readWhen},
                                          {"answer", readAnswer},
                                          {"delay", readDelay},
                                          {"drop", readDrop}}};

AnswerRule readRule(const cJSON& object) {
  if (cJSON_IsObject(&object) == 0) fail("is no object");
  AnswerRule rule;
  const cJSON* value = nullptr;
  cJSON_ArrayForEach(value, &object) {
    const std::string name = value->string;
    const auto* member =
        std::find_if(kMembers.begin(), kMembers.end(), [&](const Member& m) { return m.name == name; });
    if (member == kMembers.end()) fail("has an unknown member \"" + name + '"');
    try {
      member->read(*value, rule);
    } catch (const std::runtime_error& error) {
      fail("\"" + name + "\" " + error.what());
    }
  }
  const bool drops = cJSON_HasObjectItem(&object, "drop") != 0;
  if (drops == !rule.answer.empty()) fail("has neither \"answer\" nor \"drop\", or both");
  return rule;
}

/// Every member of `part` is a member of `whole`; objects in them are compared in the same way, all else by value.
bool contains(const cJSON* whole, const cJSON& part) {
  if (cJSON_IsObject(&part) == 0) return cJSON_Compare(whole, &part, 1) != 0;
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, &part) {
    if (!contains(cJSON_GetObjectItemCaseSensitive(whole, member->string), *member)) return false;
  }
  return cJSON_IsObject(whole) != 0;
}

bool fits(const AnswerRule& rule, const Record& request, const cJSON* data) {
  return fnmatch(rule.service.c_str(), request.service.c_str(), 0) == 0 &&
         fnmatch(rule.name.c_str(), request.name.c_str(), 0) == 0 && (!rule.when || contains(data, *rule.when));
}

}  // namespace

Answers::Answers(const std::string& path) {
  const JsonPtr rules = parseText(readFile(path));
  if (cJSON_IsArray(rules.get()) == 0) fail(path + ": no array of rules");
  const cJSON* rule = nullptr;
  cJSON_ArrayForEach(rule, rules.get()) {
    try {
      rules_.push_back(readRule(*rule));
    } catch (const std::runtime_error& error) {
      fail(path + ": rule " + std::to_string(rules_.size() + 1) + ' ' + error.what());
    }
  }
}

std::size_t Answers::find(const Record& request) const {
  const JsonPtr data = parsePayload(request.payload);
  const auto found = std::find_if(rules_.begin(), rules_.end(),
                                  [&](const AnswerRule& rule) { return fits(rule, request, data.get()); });
  return found != rules_.end() ? static_cast<std::size_t>(found - rules_.begin()) + 1 : 0;
}

}  // namespace zalctl
