#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal_object.h>

#include <cmath>
#include <limits>
#include <new>
#include <optional>
#include <tuple>

#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {
bool isMemoryOut = false;  ///< for records and nodes
}  // namespace

#ifndef __clang_analyzer__  // it would take each new for a malloc without free
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return isMemoryOut ? nullptr : std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* block = operator new(size, std::nothrow)) return block;
  throw std::bad_alloc{};
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
#endif

namespace {

using namespace zal::test;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t kMax32 = std::numeric_limits<std::int32_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <class Value>
std::optional<Value> read(ZAL_ObjectHandle handle, const char* path,
                          int (*getter)(ZAL_ObjectHandle, const char*, Value*)) {
  Value value{};
  return getter(handle, path, &value) == 1 ? std::optional{value} : std::nullopt;
}

TEST(ObjectMembers, PrintAsTheyWereAddedAndDoublesIn17Characters) {
  const HandlePtr top{ZAL_Object_Create()};
  ZAL_ObjectHandle object = top.get();
  for (const int added : {ZAL_Object_AddString(object, "s", "a\"b"), ZAL_Object_AddUint32(object, "u", 4294967295U),
                          ZAL_Object_AddInt64(object, "q", -(1LL << 40)), ZAL_Object_AddBool(object, "b", 7),
                          ZAL_Object_AddNull(object, "z"), ZAL_Object_AddBlob(object, "o", "\0", 1)})
    EXPECT_EQ(added, 1);
  for (const int refused : {ZAL_Object_AddString(object, "x", nullptr), ZAL_Object_AddInt32(object, nullptr, 1),
                            ZAL_Object_AddBlob(object, "x", nullptr, 3), ZAL_Object_AddInt32(nullptr, "x", 1)})
    EXPECT_EQ(refused, 0);
  ZAL_ObjectHandle list = ZAL_Object_AddArray(object, "d");
  for (const double value : {3.14159265, -1e20, std::numeric_limits<double>::max(), kInfinity, std::nan("")})
    EXPECT_EQ(ZAL_Object_AddDouble(list, nullptr, value), 1);

  EXPECT_EQ(textOf(object), R"({"s":"a\"b","u":4294967295,"q":-1099511627776,"b":true,"z":null,"o":"AA==",)"
                            R"("d":[3.141593,-1000000000000000,17976931348623157,null,null]})");
}

TEST(ObjectGetters, ReadNumbersTextsAndBooleans) {
  const HandlePtr top = parse(R"({"n":4294967297,"edge":9223372036854775808,"inf":1e400,
      "long":"99999999999999999999","d":" +2.5e1x","t":"truely"})");
  constexpr auto kNone = std::nullopt;
  using Row = std::tuple<const char*, std::optional<std::int64_t>, std::optional<std::int32_t>, std::optional<double>,
                         std::optional<std::uint8_t>>;
  for (const auto& [path, wide, narrow, real, truth] :
       {Row{"n", 4294967297, 1, 4294967297.0, kNone}, Row{"edge", kMax64, -1, 9223372036854775808., kNone},
        Row{"inf", kMax64, -1, kInfinity, kNone}, Row{"long", kMax64, kMax32, 1e20, kNone}, Row{"d", 2, 2, 25.0, kNone},
        Row{"t", 0, 0, 0.0, 1}, Row{"missing", kNone, kNone, kNone, kNone}}) {
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetInt64), wide) << path;
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetInt32), narrow) << path;
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetDouble), real) << path;
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetBool), truth) << path;
  }
  EXPECT_STREQ(ZAL_Object_GetString(top.get(), "t"), "truely");
  EXPECT_EQ(ZAL_Object_GetString(top.get(), "n"), nullptr);
}

TEST(ObjectGetters, ReportHandlesThatAreNull) {
  const LogCapture log;
  EXPECT_EQ(read(nullptr, "a", ZAL_Object_GetInt32), std::nullopt);
  EXPECT_EQ(ZAL_Object_GetObject(nullptr, "a"), nullptr);
  EXPECT_EQ(textOf(nullptr), "(null)");
  ZAL_Object_Destroy(nullptr);
  for (const char* line : {"GetInt32(): Invalid handle\n", "GetObject(): invalid ZAL_ObjectHandle\n",
                           "Invalid input to ZAL_Object_DumpOutput\n", "Invalid input to ZAL_Object_Destroy\n"})
    EXPECT_TRUE(log.contains(line)) << line;
}

TEST(ObjectPaths, LeadThroughMembersAndElements) {
  const HandlePtr top = parse(R"({"a":{"B":[1,[2],{"c":{"d":3}}],"x[":4},"ports":[5,6]})");
  const LogCapture log;
  for (const char* path : {"ports[2]", "ports[-1]", "ports[4294967297]", "a:b[1]:c", "a:b:c", ":"})
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetInt32), std::nullopt) << path;
  for (const auto& [path, value] : {std::pair{"::A::b[2]:c:d:", 3}, {"a:x[", 4}, {"ports[1]rest", 6}, {"ports[x]", 5}})
    EXPECT_EQ(read(top.get(), path, ZAL_Object_GetInt32), value) << path;
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(read(top.get(), "a[1]:b", ZAL_Object_GetInt32), std::nullopt);
  EXPECT_THAT(log.text(), MatchesRegex(".*core/base/zal_object\\(.*\\):getArrayObject\\(\\): a: is not an array\n.*"));
}

TEST(ObjectTrees, TakeReadyMadeJsonWithoutItsEmptyParts) {
  const HandlePtr top{ZAL_Object_Create()};
  const HandlePtr lent = parse(R"({"m":{"n":{}}})");
  ZAL_Object_AddJson(top.get(), "kept", cJSON_Parse(R"({"a":{"b":[{},[]]},"c":[1,{}],"d":null})"));
  ZAL_Object_AddJson(top.get(), "gone", cJSON_CreateObject());
  ZAL_Object_AddJson(top.get(), nullptr, cJSON_CreateTrue());
  ZAL_Object_AddJson(top.get(), "key", ZAL_Object_GetInternal(top.get()));
  ZAL_Object_AddJson(top.get(), "lent", cJSON_CreateObjectReference(ZAL_Object_GetInternal(lent.get())->child));

  EXPECT_EQ(textOf(top.get()), R"({"kept":{"c":[1],"d":null},"lent":{"m":{"n":{}}}})");
  EXPECT_EQ(textOf(lent.get()), R"({"m":{"n":{}}})");
}

TEST(ObjectTrees, MoveWithAllTheirHandles) {
  const HandlePtr top{ZAL_Object_Create()};
  ZAL_ObjectHandle child = ZAL_Object_Create();
  ZAL_ObjectHandle full = ZAL_Object_AddObject(child, "full");
  ZAL_ObjectHandle hollow = ZAL_Object_AddArray(ZAL_Object_AddObject(child, "hollow"), "inner");
  ZAL_Object_AddInt32(full, "n", 1);

  ZAL_Object_AppendObject(top.get(), "child", child);

  EXPECT_EQ(ZAL_Object_AddInt32(full, "late", 2) + ZAL_Object_AddInt32(child, "later", 3), 2);
  EXPECT_EQ(ZAL_Array_AddInt32(hollow, 4), 0);
  EXPECT_EQ(textOf(hollow), "(null)");
  ZAL_Object_Destroy(full);  // belongs to the top handle: left alone
  EXPECT_EQ(textOf(top.get()), R"({"child":{"full":{"n":1,"late":2},"later":3}})");
}

TEST(ObjectTrees, RefuseWhatIsNoTopHandleOrHoldsTheParent) {
  HandlePtr top = parse(R"({"a":{"b":1}})");
  ZAL_ObjectHandle sub = ZAL_Object_AddObject(top.get(), "sub");
  const HandlePtr view{ZAL_Object_GetObject(top.get(), "a")};
  for (ZAL_ObjectHandle child : {top.get(), sub, view.get(), ZAL_ObjectHandle{}}) {
    ZAL_Object_AppendObject(top.get(), "k", child);
    ZAL_Object_AppendObject(sub, "k", child);
  }
  ZAL_Object_AppendObject(view.get(), "p", parse(R"({"q":3})").release());
  EXPECT_EQ(textOf(top.get()), R"({"a":{"b":1,"p":{"q":3}},"sub":{}})");

  ZAL_ObjectHandle nameless = ZAL_Object_Create();
  ZAL_ObjectHandle inner = ZAL_Object_AddObject(nameless, "inner");
  ZAL_Object_AppendObject(top.get(), nullptr, nameless);
  EXPECT_EQ(ZAL_Object_AddInt32(nameless, "n", 1) + ZAL_Object_AddInt32(inner, "n", 1), 0);
  top.reset();  // the view outlives its tree
}

void* takeOffsetBlock(std::size_t size) {
  auto* block = isMemoryOut ? nullptr : static_cast<char*>(std::malloc(size + 16));
  return block == nullptr ? nullptr : block + 16;
}
void returnOffsetBlock(void* block) {
  if (block != nullptr) std::free(static_cast<char*>(block) - 16);
}

// For records and for cJSON, whose blocks are not malloc's here. Each allocation in turn is failed by
// zal_faults_memory.
TEST(ObjectMemory, RunningOutIsReportedAndLosesNothing) {
  cJSON_Hooks hooks{takeOffsetBlock, returnOffsetBlock};
  cJSON_InitHooks(&hooks);
  const HandlePtr top = parse(R"({"a":{"b":1}})");
  const LogCapture log;

  isMemoryOut = true;
  EXPECT_EQ(ZAL_Object_Create(), nullptr);
  EXPECT_EQ(ZAL_Object_GetObject(top.get(), "a"), nullptr);
  EXPECT_EQ(ZAL_Object_AddArray(top.get(), "o"), nullptr);
  EXPECT_EQ(ZAL_Object_AddDouble(top.get(), "d", 1) + ZAL_Object_AddBlob(top.get(), "b", "x", 1), 0);
  isMemoryOut = false;

  EXPECT_EQ(ZAL_Object_AddBlob(top.get(), "b", "x", 1), 1);
  EXPECT_EQ(textOf(top.get()), R"({"a":{"b":1},"b":"eA=="})");
  for (const char* line : {"Create(): Unable to create cJSON Object\n", "GetObject(): failed to allocate memory\n"})
    EXPECT_THAT(log.text(), HasSubstr(line));
}

TEST(ObjectStack, SufficesForTheDeepestDocumentThatParses) {
  std::string text;
  for (int level = 0; level < 1000; ++level) text += R"({"k":)";
  text += "1" + std::string(1000, '}');

  onSmallStack([&] {
    const HandlePtr top{ZAL_Object_Create()};
    ZAL_Object_AppendObject(top.get(), "k", parse(text).release());
    EXPECT_EQ(textOf(top.get()), R"({"k":)" + text + "}");
    ZAL_ObjectHandle innermost = ZAL_Object_AddArray(top.get(), "handles");
    for (int level = 0; level < 1000; ++level) innermost = ZAL_Array_AddArray(innermost);
    EXPECT_NE(innermost, nullptr);
  });
}

}  // namespace
