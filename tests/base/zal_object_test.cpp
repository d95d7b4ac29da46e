#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal_log.h>
#include <zal/zal_object.h>

#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using ::testing::HasSubstr;

constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();

template <class Value>
std::optional<Value> read(ZAL_ObjectHandle handle, const char* path,
                          int (*getter)(ZAL_ObjectHandle, const char*, Value*)) {
  Value value{};
  return getter(handle, path, &value) == 1 ? std::optional{value} : std::nullopt;
}

TEST(ObjectMembers, PrintAsTheyWereAdded) {
  const HandlePtr top{ZAL_Object_Create()};
  const ZAL_ObjectHandle list = ZAL_Object_AddArray(top.get(), "list");
  const double inf = std::numeric_limits<double>::infinity();

  for (const int added :
       {ZAL_Object_AddString(top.get(), "s", "a\"b"), ZAL_Object_AddInt32(top.get(), "i", -5),
        ZAL_Object_AddUint32(top.get(), "u", 4294967295U), ZAL_Object_AddInt64(top.get(), "q", -(1LL << 40)),
        ZAL_Object_AddUint64(top.get(), "w", 1ULL << 40), ZAL_Object_AddBool(top.get(), "b", 7),
        ZAL_Object_AddNull(top.get(), "z"), ZAL_Object_AddBlob(top.get(), "e", nullptr, 0),
        ZAL_Object_AddBlob(top.get(), "o", "\0", 1), ZAL_Object_AddDouble(list, nullptr, 0.5),
        ZAL_Object_AddInt32(list, nullptr, 1), ZAL_Object_AddBool(list, nullptr, 0),
        ZAL_Object_AddDouble(list, "key", 0.5)})
    EXPECT_NE(added, 0);
  for (const int refused : {ZAL_Object_AddString(top.get(), "x", nullptr), ZAL_Object_AddInt32(top.get(), nullptr, 1),
                            ZAL_Object_AddNull(list, nullptr), ZAL_Object_AddString(list, nullptr, "x"),
                            ZAL_Object_AddBlob(top.get(), "x", nullptr, 3), ZAL_Object_AddInt32(nullptr, "x", 1)})
    EXPECT_EQ(refused, 0);

  EXPECT_EQ(textOf(top.get()), R"({"list":[0.500000,1,false,0.5],"s":"a\"b","i":-5,"u":4294967295,"q":-1099511627776,)"
                               R"("w":1099511627776,"b":true,"z":null,"e":"","o":"AA=="})");

  EXPECT_EQ(ZAL_Object_AddInt64(top.get(), "beyond", (1LL << 53) + 1), 1);
  EXPECT_EQ(read(top.get(), "beyond", ZAL_Object_GetInt64), 1LL << 53);

  struct Row {
    double value;
    const char* text;
  };
  for (const auto& [value, text] : std::vector<Row>{{2.5, "2.500000"},
                                                    {-1, "-1.000000"},
                                                    {3.14159265, "3.141593"},
                                                    {1e20, "10000000000000000"},
                                                    {1234567890123456, "1234567890123456"},
                                                    {-1e300, "-1000000000000000"},
                                                    {inf, "null"},
                                                    {std::nan(""), "null"}}) {
    const HandlePtr object{ZAL_Object_Create()};
    EXPECT_EQ(ZAL_Object_AddDouble(object.get(), "d", value), 1);
    EXPECT_EQ(textOf(object.get()).substr(0, 21), (std::string{R"({"d":)"} + text + "}").substr(0, 21));
  }
}

TEST(ObjectGetters, ReadNumbersTextsAndBooleans) {
  const HandlePtr top = parse(R"({"n":4294967297,"big":1e300,"low":-1e300,"neg":-7.9,"inf":1e400,
      "long":"99999999999999999999","text":"12abc","d":" +2.5e1x","t":"truely","f":"false","b":true,"z":null})");
  struct Row {
    const char* path;
    std::optional<std::int64_t> wide;
    std::optional<std::int32_t> narrow;
    std::optional<double> real;
    std::optional<std::uint8_t> truth;
  };
  const std::vector<Row> rows = {
      {"n", 4294967297, 1, 4294967297.0, {}},
      {"big", kMax64, -1, 1e300, {}},
      {"low", kMin64, 0, -1e300, {}},
      {"neg", -7, -7, -7.9, {}},
      {"inf", kMax64, -1, std::numeric_limits<double>::infinity(), {}},
      {"long", kMax64, std::numeric_limits<std::int32_t>::max(), 1e20, {}},
      {"text", 12, 12, 12.0, {}},
      {"d", 2, 2, 25.0, {}},
      {"t", 0, 0, 0.0, std::uint8_t{1}},
      {"f", 0, 0, 0.0, std::uint8_t{0}},
      {"b", {}, {}, {}, std::uint8_t{1}},
      {"z", {}, {}, {}, {}},
      {"missing", {}, {}, {}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(read(top.get(), row.path, ZAL_Object_GetInt64), row.wide);
    EXPECT_EQ(read(top.get(), row.path, ZAL_Object_GetInt32), row.narrow);
    EXPECT_EQ(read(top.get(), row.path, ZAL_Object_GetDouble), row.real);
    EXPECT_EQ(read(top.get(), row.path, ZAL_Object_GetBool), row.truth);
  }
  EXPECT_EQ(read(top.get(), "neg", ZAL_Object_GetUint64), static_cast<std::uint64_t>(-7));
  EXPECT_EQ(read(top.get(), "neg", ZAL_Object_GetUint32), static_cast<std::uint32_t>(-7));
  EXPECT_STREQ(ZAL_Object_GetString(top.get(), "text"), "12abc");
  EXPECT_EQ(ZAL_Object_GetString(top.get(), "n"), nullptr);
}

TEST(ObjectPaths, LeadThroughMembersAndElements) {
  const HandlePtr top = parse(R"({"a":{"B":[1,[2],{"c":{"d":3}}],"x[":4},"ports":[5,6]})");
  const std::vector<std::pair<const char*, std::optional<std::int32_t>>> rows = {
      {"a:b[2]:c:d", 3},   {"::A::b[2]:c:d:", 3},
      {"a:x[", 4},         {"ports[1]", 6},
      {"ports[1]rest", 6}, {"ports[x]", 5},
      {"ports[2]", {}},    {"ports[-1]", {}},
      {"a:b[1]:c", {}},    {"ports[99999999999]", {}},
      {"a:b:c", {}},       {":", {}},
      {"a:b[0]:d", {}}};
  const LogCapture log;
  for (const auto& [path, value] : rows) EXPECT_EQ(read(top.get(), path, ZAL_Object_GetInt32), value) << path;
  EXPECT_EQ(log.text(), "");

  EXPECT_EQ(read(top.get(), "a[1]:b", ZAL_Object_GetInt32), std::nullopt);
  EXPECT_THAT(log.text(), HasSubstr("core/base/zal_object("));
  EXPECT_THAT(log.text(), HasSubstr("getArrayObject(): a: is not an array\n"));

  const HandlePtr any{ZAL_Object_GetObject(top.get(), "ports[1]")};
  const HandlePtr array{ZAL_Object_GetArray(top.get(), "a:b")};
  const HandlePtr own{ZAL_Object_GetArray(array.get(), nullptr)};
  EXPECT_EQ(textOf(any.get()), "6");
  EXPECT_EQ(textOf(own.get()), R"([1,[2],{"c":{"d":3}}])");
  EXPECT_EQ(ZAL_Object_IsArray(own.get()), 0);
}

TEST(ObjectFailures, AreLoggedInTheNameOfTheFunction) {
  const HandlePtr top = parse(R"({"n":1})");
  const HandlePtr empty{ZAL_Object_CreateFromcJSON(nullptr)};
  ZAL_ObjectHandle const object = top.get();
  std::int32_t narrow = 0;
  struct Row {
    std::function<bool()> fails;
    const char* line;
  };
  const std::vector<Row> rows = {
      {[] { return ZAL_Object_CreateFromJson("{", 1) == nullptr; },
       "ZAL_Object_CreateFromJson(): Unable to create cJSON Object\n"},
      {[&] { return ZAL_Object_GetInt32(empty.get(), "n", &narrow) == 0; }, "ZAL_Object_GetInt32(): Invalid handle\n"},
      {[&] { return ZAL_Object_GetDouble(object, "n", nullptr) == 0; }, "ZAL_Object_GetDouble(): Invalid handle\n"},
      {[&] { return ZAL_Object_GetInt32(object, "", &narrow) == 0; }, "ZAL_Object_GetInt32(): invalid key\n"},
      {[&] { return ZAL_Object_GetString(object, nullptr) == nullptr; }, "ZAL_Object_GetString(): invalid key\n"},
      {[] { return ZAL_Object_GetObject(nullptr, "n") == nullptr; },
       "ZAL_Object_GetObject(): invalid ZAL_ObjectHandle\n"},
      {[&] { return ZAL_Object_GetObject(object, "") == nullptr; }, "ZAL_Object_GetObject(): invalid key\n"},
      {[&] { return ZAL_Object_GetArray(object, nullptr) == nullptr; },
       "ZAL_Object_GetArray(): requested item is not an array\n"},
      {[] { return ZAL_Object_DumpOutput(nullptr) == nullptr; },
       "ZAL_Object_DumpOutput(): Invalid input to ZAL_Object_DumpOutput\n"},
      {[] { return ZAL_Object_Destroy(nullptr), true; }, "ZAL_Object_Destroy(): Invalid input to ZAL_Object_Destroy\n"},
      {[&] { return ZAL_Object_AddSecureBlob(object, "k", "", 0), true; },
       "ZAL_Object_AddSecureBlob(): \n Security not supported!!!\n"},
  };
  for (const Row& row : rows) {
    const LogCapture log;
    EXPECT_TRUE(row.fails()) << row.line;
    EXPECT_THAT(log.text(), HasSubstr(row.line));
  }
  EXPECT_EQ(textOf(object), R"({"n":1})");
}

TEST(ObjectTrees, TakeReadyMadeJsonWithoutItsEmptyParts) {
  const HandlePtr top{ZAL_Object_Create()};
  ZAL_Object_AddJson(top.get(), "kept", cJSON_Parse(R"({"a":{"b":[{},[]]},"c":[1,{}],"d":null})"));
  ZAL_Object_AddJson(top.get(), "gone", cJSON_CreateObject());
  ZAL_Object_AddJson(top.get(), nullptr, cJSON_CreateTrue());
  ZAL_Object_AddJson(nullptr, "key", cJSON_CreateTrue());
  ZAL_Object_AddJson(top.get(), "key", ZAL_Object_GetInternal(top.get()));
  const HandlePtr lent = parse(R"({"m":{"n":{}}})");
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

  EXPECT_EQ(ZAL_Object_AddInt32(full, "late", 2), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(child, "later", 3), 1);
  EXPECT_EQ(ZAL_Object_GetInternal(hollow), nullptr);
  EXPECT_EQ(ZAL_Array_AddInt32(hollow, 4), 0);
  EXPECT_EQ(ZAL_Object_AddObject(hollow, "x"), nullptr);
  EXPECT_EQ(textOf(hollow), "(null)");
  ZAL_Object_Destroy(full);  // belongs to the top handle: left alone
  EXPECT_EQ(textOf(top.get()), R"({"child":{"full":{"n":1,"late":2},"later":3}})");
}

TEST(ObjectTrees, RefuseWhatIsNotATopHandleOrHoldsTheParent) {
  const HandlePtr top = parse(R"({"a":{"b":1}})");
  ZAL_ObjectHandle sub = ZAL_Object_AddObject(top.get(), "sub");
  const HandlePtr view{ZAL_Object_GetObject(top.get(), "a")};
  const HandlePtr orphan{ZAL_Object_Create()};

  ZAL_Object_AppendObject(top.get(), "k", top.get());
  ZAL_Object_AppendObject(sub, "k", top.get());
  ZAL_Object_AppendObject(view.get(), "k", top.get());
  ZAL_Object_AppendObject(top.get(), "k", sub);
  ZAL_Object_AppendObject(top.get(), "k", view.get());
  ZAL_Object_AppendObject(top.get(), "k", nullptr);
  ZAL_Object_AppendObject(nullptr, "k", orphan.get());
  EXPECT_EQ(textOf(top.get()), R"({"a":{"b":1},"sub":{}})");

  ZAL_ObjectHandle nameless = ZAL_Object_Create();
  ZAL_ObjectHandle inner = ZAL_Object_AddObject(nameless, "inner");
  ZAL_Object_AppendObject(top.get(), nullptr, nameless);
  EXPECT_EQ(ZAL_Object_AddInt32(nameless, "n", 1) + ZAL_Object_AddInt32(inner, "n", 1), 0);
}

TEST(ObjectViews, AddWithoutAFilterAndOutliveTheirTree) {
  HandlePtr top = parse(R"({"list":[{"n":1}],"s":"text"})");
  const HandlePtr list{ZAL_Object_GetArray(top.get(), "list")};
  const HandlePtr first{ZAL_Array_GetObject(list.get(), 0)};
  const HandlePtr text{ZAL_Object_GetObject(top.get(), "s")};

  EXPECT_EQ(ZAL_Object_AddInt32(ZAL_Object_AddObject(first.get(), "o"), "m", 2), 1);
  EXPECT_EQ(ZAL_Object_AddInt32(text.get(), "n", 1), 0);
  ZAL_Object_AppendObject(first.get(), "p", parse(R"({"q":3})").release());
  EXPECT_EQ(ZAL_Object_CheckFilter(first.get(), "k", 1), 1);

  EXPECT_EQ(textOf(top.get()), R"({"list":[{"n":1,"o":{"m":2},"p":{"q":3}}],"s":"text"})");
  top.reset();
}

// A program's allocator for cJSON: its blocks are not malloc's, and it fails after so many of them.
int blocksLeft = -1;
void* takeBlock(std::size_t size) {
  if (blocksLeft == 0) return nullptr;
  if (blocksLeft > 0) --blocksLeft;
  char* block = static_cast<char*>(std::malloc(size + 16));
  return block == nullptr ? nullptr : block + 16;
}
void returnBlock(void* block) {
  if (block != nullptr) std::free(static_cast<char*>(block) - 16);
}

TEST(ObjectMemory, RunningOutAnywhereLosesOnlyWhatIsReported) {
  cJSON_Hooks hooks{takeBlock, returnBlock};
  cJSON_InitHooks(&hooks);
  ZAL_Log_SetLevel(6);
  bool isWhole = false;
  for (int limit = 0; !isWhole; ++limit) {
    ASSERT_LT(limit, 100);
    blocksLeft = limit;
    const HandlePtr top{ZAL_Object_Create()};
    std::vector<std::pair<const char*, bool>> added = {{"s", ZAL_Object_AddString(top.get(), "s", "text") != 0},
                                                       {"d", ZAL_Object_AddDouble(top.get(), "d", 1) != 0},
                                                       {"b", ZAL_Object_AddBlob(top.get(), "b", "x", 1) != 0},
                                                       {"o", ZAL_Object_AddObject(top.get(), "o") != nullptr}};
    HandlePtr child{ZAL_Object_Create()};
    ZAL_ObjectHandle inner = ZAL_Object_AddObject(child.get(), "inner");
    const bool isFilled = ZAL_Object_AddInt32(inner, "n", 1) != 0;
    ZAL_Object_AppendObject(top.get(), "c", child.get());
    if (top) static_cast<void>(child.release());
    added.emplace_back("c", isFilled && ZAL_Object_GetInternal(inner) != nullptr);
    const std::string text = textOf(top.get());
    blocksLeft = -1;

    isWhole = top != nullptr && text != "(null)";
    for (const auto& [key, wasAdded] : added) {
      EXPECT_EQ(cJSON_HasObjectItem(ZAL_Object_GetInternal(top.get()), key) != 0, wasAdded) << key << " of " << limit;
      isWhole = isWhole && wasAdded;
    }
  }
}

TEST(ObjectStack, SufficesForTheDeepestDocumentThatParses) {
  std::string text;
  for (int level = 0; level < 1000; ++level) text += R"({"k":)";
  text += "1" + std::string(1000, '}');

  onSmallStack([&] {
    HandlePtr deep = parse(text);
    ASSERT_NE(deep, nullptr);
    const HandlePtr top{ZAL_Object_Create()};
    ZAL_Object_AppendObject(top.get(), "k", deep.release());
    EXPECT_EQ(textOf(top.get()), R"({"k":)" + text + "}");
  });

  onSmallStack([] {
    const HandlePtr top{ZAL_Array_Create()};
    ZAL_ObjectHandle innermost = top.get();
    for (int level = 0; level < 3000; ++level) innermost = ZAL_Array_AddArray(innermost);
    EXPECT_NE(innermost, nullptr);
  });
}

}  // namespace
