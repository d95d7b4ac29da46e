#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal_log.h>
#include <zal/zal_object.h>

#include <tuple>
#include <vector>

#include "base/zal_message.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using ::testing::HasSubstr;

// A telemetry object under a filter, as a dataset callback would make it.
class Answer {
 public:
  explicit Answer(const char* filter) {
    zal::setMessageFilter(message_, filter);
    top_.reset(ZAL_TelemetryObject_Create(message_));
    ZAL_Message_Destroy(message_);
  }
  [[nodiscard]] ZAL_ObjectHandle top() const { return top_.get(); }
  [[nodiscard]] ZAL_ObjectHandle release() { return top_.release(); }
  [[nodiscard]] std::string text() const { return textOf(top_.get()); }

 private:
  ZAL_MessageHandle message_ = ZAL_Message_Create();
  HandlePtr top_;
};

TEST(AnswerUnderAFilter, HoldsOnlyWhatWasAskedFor) {
  const Answer answer{"system?include=cpu+memory/free&exclude=cpu/temp"};

  ZAL_ObjectHandle system = ZAL_Object_AddObject(answer.top(), "system");
  EXPECT_EQ(ZAL_Object_AddString(system, "hostname", "gateway"), 0);
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(system, "cpu");
  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "load", 7), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "temp", 50), 0);
  ZAL_ObjectHandle memory = ZAL_Object_AddObject(system, "memory");
  EXPECT_EQ(ZAL_Object_AddInt32(memory, "free", 1), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(memory, "total", 2), 0);
  EXPECT_EQ(ZAL_Object_AddObject(answer.top(), "network"), nullptr);

  EXPECT_EQ(answer.text(), R"({"system":{"cpu":{"load":7},"memory":{"free":1}}})");
  EXPECT_EQ(ZAL_Object_CheckFilter(memory, "total", 1), 0);
  EXPECT_EQ(checkFilter(memory, nullptr, 1), 1);
}

TEST(AnswerUnderAFilter, CountsNoElementsInIdentifiers) {
  const Answer answer{"eth0/ports/name"};
  ZAL_ObjectHandle ports = ZAL_Object_AddArray(ZAL_Object_AddObject(answer.top(), "eth0"), "ports");

  ZAL_ObjectHandle nested = ZAL_Array_AddObject(ZAL_Array_AddArray(ports));

  EXPECT_EQ(ZAL_Object_AddString(nested, "name", "p1"), 1);
  EXPECT_EQ(ZAL_Object_AddString(nested, "speed", "1G"), 0);
  EXPECT_EQ(ZAL_Array_AddInt32(ports, 5) + ZAL_Object_AddInt32(ports, nullptr, 6), 2);
  EXPECT_EQ(answer.text(), R"({"eth0":{"ports":[[{"name":"p1"}],5,6]}})");
}

TEST(AnswerUnderAFilter, TakesOverWhatIsAppended) {
  const Answer answer{"system/cpu"};
  ZAL_ObjectHandle child = Answer{"?exclude=memory"}.release();
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(child, "cpu");
  ZAL_ObjectHandle disk = ZAL_Object_AddObject(child, "disk");
  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "load", 1) + ZAL_Object_AddInt32(disk, "free", 2), 2);

  ZAL_Object_AppendObject(answer.top(), "system", child);

  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "temp", 3), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(child, "uptime", 4), 0);
  EXPECT_EQ(ZAL_Object_AddInt32(disk, "used", 5), 0);
  EXPECT_EQ(answer.text(), R"({"system":{"cpu":{"load":1,"temp":3}}})");
}

TEST(AnswerUnderAFilter, LeavesKeysOutThatMakeAPathTooLong) {
  const std::string name(500, 'a');
  const std::string filter = "?exclude=" + name + "/x";
  for (const auto& [length, isLeftOut] : {std::pair{522, false}, std::pair{523, true}}) {
    const Answer answer{filter.c_str()};
    const std::string key(static_cast<std::size_t>(length), 'b');
    ZAL_ObjectHandle inner = ZAL_Object_AddObject(ZAL_Object_AddObject(answer.top(), name.c_str()), key.c_str());
    EXPECT_EQ(ZAL_Object_AddInt32(inner, "x", 1), isLeftOut ? 0 : 1) << length;
    EXPECT_EQ(ZAL_Object_AddInt32(inner, "y", 1), 1) << length;
  }
}

TEST(AnswerUnderAFilter, CostsTheSameForEachMember) {
  constexpr int kCount = 2000;
  const auto fill = [](ZAL_ObjectHandle handle) {
    for (int i = 0; i < kCount; ++i) ASSERT_EQ(ZAL_Object_AddInt32(handle, "n", i), 1);
  };
  const Answer small{"a?exclude=z"};
  const Answer large{"a?exclude=z"};
  ZAL_ObjectHandle smallTop = ZAL_Object_AddObject(small.top(), "a");
  ZAL_ObjectHandle largeTop = ZAL_Object_AddObject(large.top(), "a");
  for (int i = 0; i < 100000; ++i) ASSERT_EQ(ZAL_Object_AddInt32(largeTop, "n", i), 1);
  ZAL_ObjectHandle inSmall = ZAL_Object_AddObject(smallTop, "last");
  ZAL_ObjectHandle inLarge = ZAL_Object_AddObject(largeTop, "last");

  const double alone = cpuSeconds([&] { fill(inSmall); });
  const double amongMany = cpuSeconds([&] { fill(inLarge); });

  EXPECT_LT(amongMany, 20 * alone);  // a search from the top for each member would take hundreds of times as long
}

TEST(FilterTest, ComparesIdentifiersWithPathIncludeAndExclude) {
  using Row = std::tuple<const char*, const char*, int, int>;  // filter, identifier, strict, loose
  for (const auto& [filter, identifier, strict, loose] : std::vector<Row>{{nullptr, "a", 1, 1},
                                                                          {"", "a", 1, 1},
                                                                          {"/", "a", 1, 1},
                                                                          {"system", "system", 1, 1},
                                                                          {"system", "system/cpu", 1, 1},
                                                                          {"system", "systemd", 0, 0},
                                                                          {"system/cpu", "system", 0, 1},
                                                                          {"system/cpu", "sys", 0, 0},
                                                                          {"/system", "system/cpu", 1, 1},
                                                                          {"?include=a/b", "a", 0, 1},
                                                                          {"?include=a/b", "a/b/c", 1, 1},
                                                                          {"?include=a++b", "b", 1, 1},
                                                                          {"?include=", "a", 0, 0},
                                                                          {"?exclude=a", "a/b", 0, 0},
                                                                          {"?exclude=a/b", "a", 1, 1},
                                                                          {"s?include=a&exclude=a/b", "s/a/b", 0, 0},
                                                                          {"s?include=a&exclude=a/b", "s/a/c", 1, 1},
                                                                          {"s?range=1:2", "s/a", 1, 1},
                                                                          {"s", nullptr, 0, 0}}) {
    EXPECT_EQ(filterTest(filter, identifier, 1), strict) << filter << " strict " << identifier;
    EXPECT_EQ(filterTest(filter, identifier, 0), loose) << filter << " loose " << identifier;
  }
  EXPECT_EQ(queryTestInclude(nullptr, nullptr, nullptr, 0), 0);
  EXPECT_EQ(queryTestExclude(nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(queryTestInclude("b", "/a", "a/b", 1), 1);
}

TEST(FilterTest, LogsWhatItCompares) {
  ZAL_Log_SetLevel(ZAL_LOG_TRACE);
  const LogCapture log;

  filterTest("s?include=a+b&exclude=b/c", "s/b", 1);
  filterTest("s/t", "s", 0);
  filterTest("?exclude=b", "b/c", 1);

  for (const char* line :
       {"filterTest()\t\turi:[s?include=a+b&exclude=b/c]\n", "comparePath() ======> Testing query path:s\n",
        "comparePath()\t\tSTRICT filter SUCCESS - PATH filter:[s] id:[s/b] len:1\n",
        "queryTestInclude() ======> Testing include query path:s/a\n",
        "queryTestInclude()\t\tSTRICT filter FAIL - INCLUDE query filter:[s/a] id:[s/b]\n",
        "queryTestInclude()\t\tSTRICT filter SUCCESS - INCLUDE query filter:[s/b] id:[s/b] len:3\n",
        "queryTestExclude() ======> Testing exclude query path:s/b/c\n",
        "queryTestExclude()\t\tSTRICT filter SUCCESS - EXCLUDE query filter:[b/c] id:[s/b]\n",
        "comparePath()\t\tLOOSE filter SUCCESS - PATH filter:[s/t] id:[s] len:1\n",
        "queryTestExclude()\t\tSTRICT filter FAIL - EXCLUDE query filter:[b] id:[b/c] len:1\n"})
    EXPECT_THAT(log.text(), HasSubstr(line));
}

TEST(FilterTest, LetsEverythingThroughAFilterThatIsNoUri) {
  ZAL_Log_SetLevel(ZAL_LOG_DEBUG);
  const LogCapture log;
  const Answer answer{"a b%"};

  EXPECT_EQ(filterTest("a b%", "x", 1), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(answer.top(), "n", 1) + ZAL_Object_AddInt32(answer.top(), "m", 1), 2);

  EXPECT_EQ(log.count("ZAL ERROR: Failure parsing URI - code:-1 at core/base/zal_object: 401\n"), 3);
  EXPECT_EQ(log.count("filterTest() error!\n"), 3);
}

TEST(PrunedTree, KeepsWhatTheFilterNames) {
  using Row = std::tuple<const char*, const char*, const char*, const char*>;  // filter, key, tree, what is left
  for (const auto& [filter, key, tree, left] : std::vector<Row>{
           {"cpu/load", "cpu", R"({"load":1,"temp":2})", R"({"cpu":{"load":1}})"},
           {"cpu/load", "cpu", R"("text")", R"({"cpu":"text"})"},
           {"cpu/load", "cpu", "5", "{}"},
           {"a?exclude=b/c", "a", R"({"b":[{"c":1,"d":2},{"c":3}],"e":null})", R"({"a":{"b":[{"d":2}],"e":null}})"},
           {"a?include=x", "a", R"({"b":{"x":1},"c":[[]]})", "{}"}}) {
    const Answer answer{filter};
    ZAL_Object_AddJson(answer.top(), key, cJSON_Parse(tree));
    EXPECT_EQ(answer.text(), left) << filter << ' ' << tree;
  }
}

TEST(PrunedTree, MayBeAPartOfALargerOne) {
  const HandlePtr top = parse(R"({"s":{"cpu":{"load":1,"temp":2},"disk":{"x":1}},"t":[1]})");
  cJSON* tree = ZAL_Object_GetInternal(top.get());
  cJSON* inner = tree->child;
  cJSON* last = inner->next;

  filterPruneTree("s/cpu/load", tree, &inner, tree);
  EXPECT_NE(inner, nullptr);
  EXPECT_EQ(textOf(top.get()), R"({"s":{"cpu":{"load":1}},"t":[1]})");

  filterPruneTree("s", tree, &last, tree);
  EXPECT_EQ(last, nullptr);
  EXPECT_EQ(textOf(top.get()), R"({"s":{"cpu":{"load":1}}})");

  cJSON* stranger = cJSON_Parse(R"({"n":1,"m":2})");
  filterPruneTree("n", tree, &stranger, nullptr);
  EXPECT_EQ(cJSON_GetArraySize(stranger), 1);
  filterPruneTree("x", nullptr, &stranger, nullptr);
  EXPECT_EQ(stranger, nullptr);
  filterPruneTree("x", tree, nullptr, nullptr);
}

TEST(PrunedTree, MayBeDeeperThanASmallStack) {
  onSmallStack([] {
    for (const int depth : {1000, 100000}) {
      cJSON* top = cJSON_CreateObject();
      cJSON* innermost = top;
      for (int level = 1; level < depth; ++level) innermost = cJSON_AddObjectToObject(innermost, "k");
      cJSON_AddTrueToObject(innermost, "leaf");

      filterPruneTree("k", nullptr, &top, nullptr);
      ASSERT_NE(top, nullptr);
      filterPruneTree("other", nullptr, &top, nullptr);
      EXPECT_EQ(top, nullptr);
    }
  });
}

}  // namespace
