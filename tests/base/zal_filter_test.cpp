#include <gtest/gtest.h>
#include <zal/zal_log.h>
#include <zal/zal_object.h>

#include <tuple>

#include "base/zal_message.hpp"
#include "support/memory.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;

// A telemetry object under a filter, as a dataset callback would make it.
HandlePtr answerTo(const char* filter) {
  ZAL_MessageHandle message = ZAL_Message_Create();
  zal::setMessageFilter(message, filter);
  HandlePtr top{ZAL_TelemetryObject_Create(message)};
  ZAL_Message_Destroy(message);
  return top;
}

TEST(AnswerUnderAFilter, TakesOverWhatIsAppended) {
  const HandlePtr answer = answerTo("system/cpu");
  ZAL_ObjectHandle child = answerTo("?exclude=memory").release();
  ZAL_ObjectHandle cpu = ZAL_Object_AddObject(child, "cpu");
  ZAL_ObjectHandle disk = ZAL_Object_AddObject(child, "disk");
  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "load", 1) + ZAL_Object_AddInt32(disk, "free", 2), 2);

  ZAL_Object_AppendObject(answer.get(), "system", child);

  EXPECT_EQ(ZAL_Object_AddInt32(cpu, "temp", 3), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(child, "uptime", 4), 0);
  EXPECT_EQ(ZAL_Object_AddInt32(disk, "used", 5), 0);  // its node is gone
  EXPECT_EQ(textOf(answer.get()), R"({"system":{"cpu":{"load":1,"temp":3}}})");
}

TEST(AnswerUnderAFilter, LeavesKeysOutThatMakeAPathTooLong) {
  const std::string name(500, 'a');
  const std::string filter = "?exclude=" + name + "/x";
  for (const std::size_t length : {522U, 523U}) {
    const HandlePtr answer = answerTo(filter.c_str());
    ZAL_ObjectHandle outer = ZAL_Object_AddObject(answer.get(), name.c_str());
    ZAL_ObjectHandle inner = ZAL_Object_AddObject(outer, std::string(length, 'b').c_str());
    EXPECT_EQ(ZAL_Object_AddInt32(inner, "x", 1), length == 522 ? 1 : 0) << length;
  }
}

TEST(AnswerUnderAFilter, CostsTheSameForEachMember) {
  const auto fill = [](ZAL_ObjectHandle handle, int count) {
    for (int i = 0; i < count; ++i) ASSERT_EQ(ZAL_Object_AddInt32(handle, "n", i), 1);
  };
  const HandlePtr top = answerTo("a?exclude=z");
  ZAL_ObjectHandle object = ZAL_Object_AddObject(top.get(), "a");

  const std::clock_t alone = cpuTime([&] { fill(ZAL_Object_AddObject(object, "first"), 2000); });
  fill(object, 100000);
  const std::clock_t amongMany = cpuTime([&] { fill(ZAL_Object_AddObject(object, "last"), 2000); });

  EXPECT_LT(amongMany, 20 * alone);  // a search from the top for each member would take hundreds of times as long
}

TEST(FilterTest, ComparesIdentifiersAndLetsEverythingThroughAFilterThatIsNoUri) {
  ZAL_Log_SetLevel(ZAL_LOG_DEBUG);
  const LogCapture log;
  using Row = std::tuple<const char*, const char*, int, int>;  // filter, identifier, strict, loose
  for (const auto& [filter, identifier, strict, loose] :
       {Row{nullptr, "a", 1, 1}, Row{"/", "a", 1, 1}, Row{"system", "systemd", 0, 0}, Row{"system", nullptr, 0, 0},
        Row{"system/cpu", "system", 0, 1}, Row{"?include=a++b", "b", 1, 1}, Row{"a b%", "x", 1, 1},
        Row{"a/b", "a/b/c", 1, 1}, Row{"a?include=b+c/d", "a/c", 0, 1}, Row{"a?include=b+c/d", "a/c/d/e", 1, 1},
        Row{"a?include=b", "b", 0, 0}, Row{"a?exclude=b/c", "a/b", 1, 1}, Row{"a?exclude=d+b/c", "a/b/c/d", 0, 0},
        Row{"a?include=b&exclude=b/c", "a/b/c", 0, 0}, Row{"?include=ab", "a", 0, 0}}) {
    EXPECT_EQ(filterTest(filter, identifier, 1), strict) << filter << " strict " << identifier;
    EXPECT_EQ(filterTest(filter, identifier, 0), loose) << filter << " loose " << identifier;
  }
  EXPECT_EQ(log.count("ZAL ERROR: Failure parsing URI - code:-1 at core/base/zal_object: 401\n"), 2);
}

TEST(PrunedTree, KeepsWhatTheFilterNames) {
  using Row = std::tuple<const char*, const char*, const char*, const char*>;  // filter, key, tree, what is left
  for (const auto& [filter, key, tree, left] :
       {Row{"cpu/load", "cpu", R"({"load":1,"temp":2})", R"({"cpu":{"load":1}})"},
        Row{"a?exclude=b/c", "a", R"({"b":[{"c":1,"d":2},{"c":3}],"e":null})", R"({"a":{"b":[{"d":2}],"e":null}})"},
        Row{"a?include=x", "a", R"({"b":{"x":1},"c":[[]]})", "{}"}}) {
    const HandlePtr answer = answerTo(filter);
    ZAL_Object_AddJson(answer.get(), key, cJSON_Parse(tree));
    EXPECT_EQ(textOf(answer.get()), left) << filter << ' ' << tree;
  }
  const zal::JsonPtr top{cJSON_Parse(R"({"a":{"b":1,"c":2},"d":3})")};
  cJSON* part = top->child;  // of which the filter knows the whole way
  filterPruneTree("a/b", top.get(), &part, top.get());
  EXPECT_EQ(take(cJSON_PrintUnformatted(top.get())), R"({"a":{"b":1},"d":3})");
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
