#include <gtest/gtest.h>
#include <zal/zal_json.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "support/memory.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using zal::JsonPtr;

JsonPtr parseDocument(const std::string& json) {
  return JsonPtr{cJSON_Parse(json.c_str())};
}

std::string textOf(const JsonPtr& document) {
  return take(cJSON_PrintUnformatted(document.get()));
}

// What the helpers report: the text, its code, and the module.
std::string reportOf(const std::string& text, int code = -1) {
  return "ZAL ERROR: " + text + " - code:" + std::to_string(code) + " at core/base/zal_json: ";
}

TEST(JsonAdds, HoldOnlyWhatBothFiltersLetThrough) {
  const JsonPtr top{json_Initialize()};
  const char* a = "?include=system";
  const char* b = "?exclude=system/cpu/temp";

  cJSON* system = json_AddObject(top.get(), a, b, top.get(), "system");
  cJSON* cpu = json_AddObject(system, a, b, top.get(), "cpu");
  EXPECT_STREQ(json_AddNumber(cpu, a, b, top.get(), "load", 7)->string, "load");
  EXPECT_EQ(json_AddNumber(cpu, a, b, top.get(), "temp", 50), nullptr);
  json_AddStringOrNull(system, a, b, top.get(), "name", "gateway");
  json_AddStringOrNull(system, a, b, top.get(), "place", "");
  json_AddCountingNumberOrNull(cpu, a, b, top.get(), "cores", 4);
  json_AddCountingNumberOrNull(cpu, a, b, top.get(), "sockets", 0);
  json_AddBool(json_AddArrayElement(json_AddArray(system, a, b, top.get(), "disks")), a, b, top.get(), "ssd", 2);
  EXPECT_EQ(json_AddObject(top.get(), a, b, top.get(), "network"), nullptr);
  EXPECT_EQ(json_CheckFilter(system, a, b, top.get(), "cpu") +
                json_CheckFilter(system, "system/cpu/load", b, top.get(), "cpu"),
            1);
  EXPECT_EQ(json_CheckFilterLoose(system, "system/cpu/load", b, top.get(), "cpu"), 1);
  EXPECT_EQ(json_CheckFilter(cpu, a, b, nullptr, "temp"), 0);  // without a top node the identifier is the key

  EXPECT_EQ(textOf(top), R"({"system":{"cpu":{"load":7,"cores":4,"sockets":null},"name":"gateway","place":null,)"
                         R"("disks":[{"ssd":true}]}})");
}

TEST(JsonAdds, PutKeyedMembersOfAnArrayIntoObjectsOfTheirOwn) {
  const LogCapture errors;
  const JsonPtr array{cJSON_CreateArray()};

  EXPECT_STREQ(json_AddString(array.get(), nullptr, nullptr, nullptr, "a", "x")->valuestring, "x");
  EXPECT_TRUE(cJSON_IsArray(json_AddArray(array.get(), nullptr, nullptr, nullptr, "b")));
  EXPECT_EQ(json_AddNumber(array.get(), "//", nullptr, array.get(), nullptr, 5), nullptr);  // appended, unfiltered
  EXPECT_EQ(errors.text(), "");
  EXPECT_EQ(json_AddObject(array.get(), nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(json_AddString(array.get(), nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);

  EXPECT_EQ(textOf(array), R"([{"a":"x"},{"b":[]},5])");
  EXPECT_EQ(errors.count(reportOf("Unable to create JSON object")), 1);
  EXPECT_EQ(errors.count(reportOf("Unable to create JSON arrayItem object")), 1);
}

TEST(JsonAdds, ReportWhatCannotBeAddedAndNotWhatIsRejected) {
  const JsonPtr number{cJSON_CreateNumber(1)};
  for (cJSON* parent : {static_cast<cJSON*>(nullptr), number.get()}) {
    const LogCapture errors;
    json_AddObject(parent, nullptr, nullptr, nullptr, "k");
    json_AddArray(parent, nullptr, nullptr, nullptr, "k");
    json_AddString(parent, nullptr, nullptr, nullptr, "k", "x");
    json_AddNumber(parent, nullptr, nullptr, nullptr, "k", 1);
    json_AddBool(parent, nullptr, nullptr, nullptr, "k", 1);
    json_AddNull(parent, nullptr, nullptr, nullptr, "k");
    json_AddNull(parent, "other", nullptr, nullptr, "k");
    for (const char* what : {"object", "array", "string", "number", "bool", "Null"})
      EXPECT_EQ(errors.count(reportOf(std::string("Unable to create JSON ") + what)), 1) << what;
    EXPECT_EQ(errors.count("ZAL ERROR"), 6);
  }
}

TEST(JsonDocument, LosesItsEmptyContainersAndNothingElse) {
  using Row = std::tuple<const char*, const char*>;
  for (const auto& [json, left] :
       {Row{R"({"a":[]})", "{}"}, Row{R"([[],[{"b":{}},1],{}])", "[[1]]"}, Row{R"({"a":null,"b":""})", nullptr}}) {
    const JsonPtr document = parseDocument(json);
    json_PruneEmptyObjects(document.get(), nullptr);
    EXPECT_EQ(textOf(document), left == nullptr ? json : left);
  }
  const JsonPtr parent = parseDocument(R"({"a":{"b":[]},"c":1})");
  json_PruneEmptyObjects(parent->child, parent.get());
  EXPECT_EQ(textOf(parent), R"({"c":1})");
}

TEST(JsonDocument, IsEmptyWhenItHoldsNoValue) {
  using Row = std::tuple<const char*, int, int>;  // no value anywhere, no child
  for (const auto& [json, noValue, noChild] : {Row{"{}", 1, 1}, Row{R"({"a":[{}]})", 1, 0}, Row{R"({"a":null})", 0, 0},
                                               Row{"[[],0]", 0, 0}, Row{"false", 0, 1}}) {
    EXPECT_EQ(json_IsEmptyObjects(parseDocument(json).get()), noValue) << json;
    EXPECT_EQ(json_IsEmpty(parseDocument(json).get()), noChild) << json;
  }
}

TEST(JsonDocument, HidesMembersBehindNull) {
  using Row = std::tuple<const char*, const char*>;
  for (const auto& [json, left] :
       {Row{R"({"k":1,"a":{"k":2}})", R"({"a":{"k":2},"k":null})"},  // the visit ends where the key was found
        Row{R"({"a":[{"k":{"k":1}},{"b":{"k":"x","K":3}}],"k":{},"c":4})",
            R"({"a":[{"k":null},{"b":{"K":3,"k":null}}],"c":4,"k":null})"},
        Row{R"({"a":1})", R"({"a":1})"}, Row{"\"k\"", "\"k\""}}) {
    const JsonPtr document = parseDocument(json);
    json_NullObject("k", document.get());
    EXPECT_EQ(textOf(document), left);
  }
  const JsonPtr document = parseDocument(R"({"a":{"k":1},"k":2})");
  json_NullObject(document->child->child->string, document.get());  // a key that is deleted on the way
  EXPECT_EQ(textOf(document), R"({"a":{"k":null},"k":null})");
}

}  // namespace
