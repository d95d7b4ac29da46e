#include <gtest/gtest.h>
#include <zal/zal_json.h>

#include <cstdlib>
#include <limits>
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

/// Twenty times as much may cost a hundred times as much, but not four hundred times.
void expectLinear(std::clock_t (*cost)(int count)) {
  EXPECT_LT(cost(20000), 100 * (cost(1000) + CLOCKS_PER_SEC / 10000));
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
  json_AddBool(json_AddArrayElement(json_AddArray(system, a, b, top.get(), "disks")), a, b, top.get(), "ssd", 2);
  json_AddNull(system, a, b, top.get(), "fans");
  json_AddCountingNumberOrNull(cpu, a, b, top.get(), "cores", 4);  // below a member that is no longer among the newest
  json_AddCountingNumberOrNull(cpu, a, b, top.get(), "sockets", 0);
  EXPECT_EQ(json_AddObject(top.get(), a, b, top.get(), "network"), nullptr);
  EXPECT_EQ(json_CheckFilter(system, "system/cpu/load", b, top.get(), "cpu"), 0);
  EXPECT_EQ(json_CheckFilterLoose(system, "system/cpu/load", b, top.get(), "cpu"), 1);
  EXPECT_EQ(json_CheckFilter(cpu, a, b, nullptr, "temp"), 0);  // without a top node the identifier is the key

  EXPECT_EQ(textOf(top), R"({"system":{"cpu":{"load":7,"cores":4,"sockets":null},"name":"gateway","place":null,)"
                         R"("disks":[{"ssd":true}],"fans":null}})");
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

TEST(JsonAdds, CostTheSameHoweverLargeTheDocumentIs) {
  expectLinear([](int count) {  // two lists of objects, side by side
    const JsonPtr top{cJSON_CreateObject()};
    cJSON* lists[] = {cJSON_AddArrayToObject(top.get(), "a"), cJSON_AddArrayToObject(top.get(), "b")};
    return cpuTime([&] {
      for (int i = 0; i < count; ++i) {
        cJSON* object = json_AddObject(json_AddArrayElement(lists[i % 2]), "?exclude=z", "/", top.get(), "o");
        ASSERT_NE(json_AddNull(object, "?exclude=z", "/", top.get(), "n"), nullptr);
      }
    });
  });
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

TEST(JsonDocument, IsEmptyWhenItHoldsNoValueAndLosesItsEmptyContainers) {
  using Row = std::tuple<const char*, int, int, const char*>;  // no value anywhere, no child, what is left
  for (const auto& [json, noValue, noChild, left] :
       {Row{"{}", 1, 1, "{}"}, Row{R"({"a":[{}]})", 1, 0, "{}"}, Row{R"([[],[{"b":{}},1],{}])", 0, 0, "[[1]]"},
        Row{R"({"a":null,"b":""})", 0, 0, R"({"a":null,"b":""})"}, Row{"false", 0, 1, "false"}}) {
    const JsonPtr document = parseDocument(json);
    EXPECT_EQ(json_IsEmptyObjects(document.get()), noValue) << json;
    EXPECT_EQ(json_IsEmpty(document.get()), noChild) << json;
    json_PruneEmptyObjects(document.get(), nullptr);
    EXPECT_EQ(textOf(document), left);
  }
  const JsonPtr parent = parseDocument(R"({"a":{"b":[]},"c":1})");
  json_PruneEmptyObjects(parent->child, parent.get());
  EXPECT_EQ(textOf(parent), R"({"c":1})");
}

TEST(JsonDocument, HidesMembersBehindNull) {
  for (const auto& [json, left] :
       {std::pair{R"({"k":1,"a":{"k":2}})", R"({"a":{"k":2},"k":null})"},  // the visit ends where the key was found
        {R"({"a":[{"k":{"k":1}},{"b":{"k":"x","K":3}}],"k":{},"c":4})",
         R"({"a":[{"k":null},{"b":{"K":3,"k":null}}],"c":4,"k":null})"},
        {"\"k\"", "\"k\""}}) {
    const JsonPtr document = parseDocument(json);
    json_NullObject("k", document.get());
    EXPECT_EQ(textOf(document), left);
  }
  const JsonPtr document = parseDocument(R"({"a":{"k":1},"k":2})");
  json_NullObject(document->child->child->string, document.get());  // a key that is deleted on the way
  EXPECT_EQ(textOf(document), R"({"a":{"k":null},"k":null})");
}

TEST(JsonDocument, IsWalkedOnASmallStackHoweverDeepItIs) {
  onSmallStack([] {
    for (const int depth : {1000, 100000}) {
      JsonPtr top{cJSON_CreateObject()};
      cJSON* innermost = top.get();
      for (int level = 1; level < depth; ++level) innermost = cJSON_AddObjectToObject(innermost, "k");
      EXPECT_NE(json_AddNull(innermost, "k", nullptr, top.get(), "leaf"), nullptr);
      EXPECT_EQ(json_IsEmptyObjects(top.get()), 0);
      if (depth == 1000) {  // cJSON itself recurses
        std::string text(10000, ' ');
        EXPECT_EQ(json_Print(top.get(), text.data(), text.size(), 1, 1), 0);
      }
      json_NullObject("leaf", top.get());
      cJSON_DeleteItemFromObject(innermost, "leaf");
      EXPECT_EQ(json_IsEmptyObjects(top.get()), 1);
      json_PruneEmptyObjects(top.get(), nullptr);
      EXPECT_EQ(json_IsEmpty(top.get()), 1);
    }
    std::string json = "[1,2]";
    for (int level = 0; level < 256; ++level) json.insert(0, R"([{"a":)").append("}]");
    const JsonPtr nested = parseDocument(json);
    std::string path = "a";  // as many steps as are read of a path
    for (int level = 1; level < 256; ++level) path += "/a";
    pruneRangePath(nested.get(), path.c_str(), "1");
    EXPECT_NE(textOf(nested).find(":[2]"), std::string::npos);
  });
}

TEST(JsonDocument, IsCleanedInLinearTime) {
  expectLinear([](int count) {
    const JsonPtr list{cJSON_CreateArray()};
    for (int i = 0; i < 10 * count; ++i)
      cJSON_AddItemToArray(list.get(), i % 2 != 0 ? cJSON_CreateNumber(i) : cJSON_CreateObject());
    return cpuTime([&] {
      json_PruneEmptyObjects(list.get(), nullptr);
      applyArrayRange(list.get(), "100:100");
    });
  });
}

TEST(JsonDocument, LeavesTheChildrenOfAReferenceAlone) {
  const JsonPtr other = parseDocument(R"({"list":[{},1,2],"k":1})");
  const JsonPtr document{cJSON_CreateObject()};
  cJSON_AddItemReferenceToObject(document.get(), "other", other.get());
  cJSON* reference = document->child;
  const LogCapture errors;

  json_PruneEmptyObjects(document.get(), nullptr);
  json_NullObject("k", document.get());
  pruneRangePath(document.get(), "other/list", "0");

  EXPECT_EQ(json_AddNull(reference, nullptr, nullptr, nullptr, "n"), nullptr);
  EXPECT_EQ(textOf(document), R"({"other":{"list":[{},1,2],"k":1}})");
}

// The include part decides alone, without one the exclude part, and without both the path.
TEST(JsonFilterTest, ComparesIdentifiersWithTheOnePartThatDecides) {
  using Row = std::tuple<const char*, const char*, int, int>;  // filter, identifier, strict, loose
  for (const auto& [filter, identifier, strict, loose] :
       {Row{nullptr, "a", 1, 1}, Row{"/", "a", 1, 1}, Row{"//a", "a", 0, 0}, Row{"system", "systemd", 0, 1},
        Row{"system", nullptr, 0, 1}, Row{"?x=1", "a", 1, 1}, Row{"s?x=1", "a", 0, 0}, Row{"a b%", "x", 0, 0},
        Row{"s?include=a&exclude=a/b", "s/a/b", 1, 1}, Row{"?include=", "a", 0, 0}, Row{"s?exclude=a", "t", 1, 1},
        Row{"s%2Fa", "s/a", 1, 1}, Row{"s/a", "s/a/b", 1, 1}, Row{"s/a", "s", 0, 1},
        Row{"s?include=a+b/c", "s/b", 0, 1}, Row{"s?include=a+b/c", "s/b/c/d", 1, 1}, Row{"s?exclude=a/b", "s/a", 1, 1},
        Row{"s?exclude=c+a/b", "s/a/b/c", 0, 0}}) {
    EXPECT_EQ(jsonFilterTest(filter, identifier, 1), strict) << filter << " strict " << identifier;
    EXPECT_EQ(jsonFilterTest(filter, identifier, 0), loose) << filter << " loose " << identifier;
  }
}

TEST(JsonRange, KeepsARunOfAnArray) {
  const std::string whole = "[0,1,2,3,4]";
  const std::string huge(23, '9');
  const std::string most = "18446744073709551615";
  const std::string longest = std::string(126, '0') + "12";  // read up to 127 characters
  const std::pair<std::string, std::string> cases[] = {
      {"2:2", "[2,3]"},  {"3:5", "[3,4]"},       {"3:0", "[]"},      {"5:1", "[]"},
      {"3:", "[3,4]"},   {"3:x", "[3,4]"},       {":3", "[2,3,4]"},  {"-1:2", "[3,4]"},
      {" 1:2", "[3,4]"}, {":0", "[]"},           {":99", whole},     {"4x", "[4]"},
      {"5", "[]"},       {"x", whole},           {":", whole},       {"", whole},
      {":-1", whole},    {"3:" + huge, "[3,4]"}, {huge + ":", "[]"}, {most + ":" + most, "[]"},
      {longest, "[1]"}};
  for (const auto& [range, left] : cases) {
    const JsonPtr array = parseDocument(whole);
    applyArrayRange(array.get(), range.c_str());
    EXPECT_EQ(textOf(array), left) << range;
  }
}

TEST(JsonRange, CutsWhatThePathsOfARequestLeadTo) {
  using Row = std::tuple<const char*, const char*, const char*, int>;  // request, document, what is left, reports
  const char* ports = R"({"e":[{"p":[1,2],"q":0},{},{"p":[3,4]}]})";
  const char* lists = R"({"s":{"a":[1,2],"b":[3,4],"ab":[5]}})";
  for (const auto& [request, json, left, reports] :
       {Row{"e/p?range=1", ports, R"({"e":[{"p":[2],"q":0},{},{"p":[4]}]})", 0},
        Row{"/e/x/p/?range=1", ports, R"({"e":[{"p":[2],"q":0},{},{"p":[4]}]})", 0},  // no element has an "x"
        Row{"p/n?range=:1", R"([{"p":[{"n":[1,2]},{"n":[]}]}])", R"([{"p":[{"n":[2]},{"n":[]}]}])", 0},
        Row{"e/x?range=0", ports, ports, 0}, Row{"e/q/z?range=0", ports, ports, 1}, Row{"x?range=0", ports, ports, 1},
        Row{"s/?include=a++b+c&range=0", lists, R"({"s":{"a":[1],"b":[3],"ab":[5]}})", 1},
        Row{"s/a?include=b&range=1", lists, R"({"s":{"a":[1,2],"b":[3,4],"ab":[]}})", 0},  // nothing between them
        Row{"s/a?include=&range=1", lists, lists, 0}, Row{"s/a?range=", lists, lists, 0},
        Row{nullptr, lists, lists, 0}}) {
    const LogCapture errors;
    const JsonPtr document = parseDocument(json);
    json_PruneArrayRangeObjects(document.get(), request);
    EXPECT_EQ(textOf(document), left) << (request == nullptr ? "null" : request);
    EXPECT_EQ(errors.count(reportOf("error given path does not match given object tree") + "486\n"), reports);
  }
}

TEST(JsonDocument, IsStampedWithAHeaderOrAnError) {
  const timeval time{1700000000, 250000};
  using Row = std::tuple<const char*, uint32_t, const char*, int, const char*>;
  for (const auto& [description, version, metadata, result, left] :
       {Row{"d", 4294967295, R"({"m":[1]})", 0,
            R"({"version":4294967295,"description":"d","timestamp":1700000000.25,"metadata":{"m":[1]}})"},
        Row{"", 0, "{}", 0, R"({"timestamp":1700000000.25,"metadata":"{}"})"},
        Row{nullptr, 0, "", 0, R"({"timestamp":1700000000.25})"},
        Row{nullptr, 0, "{}}", -1, R"({"timestamp":1700000000.25})"}}) {
    const LogCapture errors;
    const JsonPtr object{cJSON_CreateObject()};
    EXPECT_EQ(json_GenerateHeader(object.get(), nullptr, description, &time, version, metadata), result);
    EXPECT_EQ(textOf(object), left);
    EXPECT_EQ(errors.count(reportOf("Failed to parse metadata into JSON string")), -result);
  }
  const LogCapture errors;
  const JsonPtr object{cJSON_CreateObject()};
  EXPECT_EQ(json_GenerateError(object.get(), -7, "why"), 0);
  EXPECT_EQ(textOf(object), R"({"error":{"code":-7,"message":"why"}})");
  EXPECT_EQ(json_GenerateError(object.get(), 1, nullptr), -1);
  EXPECT_EQ(json_GenerateHeader(nullptr, nullptr, "d", nullptr, 0, nullptr), -1);
  EXPECT_EQ(errors.count(reportOf("unable to add error json object")), 1);
  EXPECT_EQ(errors.count(reportOf("Unable to create JSON string")), 1);
}

TEST(JsonDocument, IsJudgedByTheFirstRuleThatHolds) {
  using Row = std::tuple<const char*, const char*, int, const char*, int, const char*>;
  const char* empty = R"({"a":[{}]})";
  for (const auto& [json, request, errors, message, status, text] :
       {Row{R"({"a":1})", "a", 2, "m", 500, "Zimta API returned error,check plugin console log"},
        Row{R"({"a":1})", "a", 0, "m", 400, "m"}, Row{"", "a", -1, "", 500, "Plugin error - NULL object"},
        Row{R"({"a":null})", "a", 0, nullptr, 0, "untouched"},
        Row{empty, "a/b", 0, nullptr, 404, "Invalid resource:a/b"},
        Row{empty, "a?b", 0, nullptr, 400, "Invalid query:a?b, try help"},
        Row{R"({"a":[1]})", "a?range=1", 0, nullptr, 400, "Invalid query:a?range=1, try help"},
        Row{empty, "", 0, nullptr, 500, "Plugin error - no data"}}) {
    const JsonPtr answer = parseDocument(json);
    char buffer[64] = "untouched";
    EXPECT_EQ(json_CheckPluginError(answer.get(), request, errors, message, buffer, sizeof buffer), status) << text;
    EXPECT_STREQ(buffer, text);
  }
  char small[20];
  EXPECT_EQ(json_CheckPluginError(parseDocument("{}").get(), "abcdef", 0, nullptr, small, sizeof small), 404);
  EXPECT_STREQ(small, "Invalid resource:ab");
  EXPECT_EQ(json_CheckPluginError(nullptr, nullptr, 0, nullptr, nullptr, 5), 500);
}

TEST(JsonDocument, IsPrintedIntoTheCallersBuffer) {
  const JsonPtr document = parseDocument(R"({"a":1,"b":{}})");
  char buffer[64];
  EXPECT_EQ(json_Print(document.get(), buffer, sizeof buffer, 0, 0), 0);
  EXPECT_STREQ(buffer, R"({"a":1,"b":{}})");
  setenv("FORMATTED_JSON", "yes", 1);
  EXPECT_EQ(json_Print(document.get(), buffer, sizeof buffer, 1, 0), 0);
  EXPECT_STREQ(buffer, "{\n\t\"a\":\t1\n}");
  EXPECT_EQ(json_Print(document.get(), buffer, sizeof buffer, 0, 1), 0);
  EXPECT_STREQ(buffer, R"({"a":1})");
  const LogCapture errors;
  EXPECT_EQ(json_Print(document.get(), buffer, 4, 0, 1), -1);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(json_Print(nullptr, buffer, sizeof buffer, 1, 0) + json_Print(document.get(), nullptr, 9, 0, 0), -2);
  EXPECT_EQ(errors.count(reportOf("Failure printing JSON to allocated buffer")), 3);
}

TEST(JsonFormatTimeval, WritesUtcAndTellsWhatItNeeds) {
  constexpr bool kIsWide = sizeof(time_t) == 8;
  constexpr time_t kLast = std::numeric_limits<time_t>::max();
  using Row = std::tuple<timeval, std::size_t, ssize_t, const char*>;
  for (const auto& [time, size, result, text] :
       {Row{{0, 5}, 28, 27, "1970-01-01T00:00:00.000005Z"}, Row{{0, 5}, 23, 27, "1970-01-01T00:00:00.00"},
        Row{{-1, 0}, 20, 27, "1969-12-31T23:59:59"}, Row{{0, 5}, 19, 0, "-"}, Row{{0, 5}, 0, 0, "-"},
        Row{{kLast, 0}, 64, kIsWide ? -1 : 27, kIsWide ? "-" : "2038-01-19T03:14:07.000000Z"}}) {
    char buffer[64] = "-";
    EXPECT_EQ(json_FormatTimeval(&time, buffer, size), result);
    EXPECT_STREQ(buffer, text);
  }
}

TEST(JsonDocument, MayBeNullAndIsSearchedByExactKeys) {
  const JsonPtr document = parseDocument(R"({"A":1,"b":{"a":2},"a":3,"a":4})");
  EXPECT_EQ(json_FindElement(document.get(), "a")->valueint, 3);
  EXPECT_EQ(json_FindElement(parseDocument("[1]").get(), ""), nullptr);

  const LogCapture errors;
  json_Uninitialize(nullptr);
  json_PruneEmptyObjects(nullptr, nullptr);
  json_PruneArrayRangeObjects(nullptr, "?range=1");
  pruneRangePath(nullptr, "a", "1");
  applyArrayRange(nullptr, nullptr);
  json_NullObject(nullptr, nullptr);
  EXPECT_EQ(json_IsEmptyObjects(nullptr) + json_IsEmpty(nullptr), 2);
  EXPECT_EQ(json_FindElement(nullptr, nullptr), nullptr);
  EXPECT_EQ(json_FormatTimeval(nullptr, nullptr, 0), -1);
  EXPECT_EQ(json_CheckFilter(nullptr, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(errors.text(), "");
}

}  // namespace
