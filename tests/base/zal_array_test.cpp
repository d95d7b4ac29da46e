#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal_object.h>

#include <iterator>
#include <tuple>
#include <vector>

#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using ::testing::HasSubstr;

TEST(ArrayElements, PrintAsTheyWereAppended) {
  const HandlePtr array{ZAL_Array_Create()};

  for (const int added : {ZAL_Array_AddString(array.get(), "a"), ZAL_Array_AddInt64(array.get(), -(1LL << 40)),
                          ZAL_Array_AddDouble(array.get(), 0.1), ZAL_Array_AddBool(array.get(), 2),
                          ZAL_Array_AddJson(array.get(), cJSON_CreateObject()),
                          ZAL_Object_AddInt32(ZAL_Array_AddObject(array.get()), "n", 1)})
    EXPECT_EQ(added, 1);
  for (const int refused : {ZAL_Array_AddJson(array.get(), ZAL_Object_GetInternal(array.get())),
                            ZAL_Array_AddJson(HandlePtr{ZAL_Object_Create()}.get(), cJSON_CreateTrue())})
    EXPECT_EQ(refused, 0);
  EXPECT_EQ(take(ZAL_Array_DumpOutput(array.get())), R"(["a",-1099511627776,0.1,true,{},{"n":1}])");
}

TEST(ArrayCut, KeepsTheRunInPlaceAndInACopy) {
  const std::string letters = R"(["a","b","c","d","e"])";
  using Row = std::tuple<std::string, std::int32_t, std::int32_t, std::string>;  // kept, or why it was refused
  for (const auto& [source, start, count, kept] : std::vector<Row>{
           {letters, 1, 2, R"(["b","c"])"},
           {letters, -1, 2, R"(["d","e"])"},
           {letters, -1, 9, letters},
           {letters, 5, 1, "array start index: 5, out of bounds: 5\n"},
           {letters, 1, 2147483647, "invalid input: arraySize: 5, startIndex: 1, numElements: 2147483647\n"},
           {"[]", 0, -1, "array start index: 0, out of bounds: 0\n"},
           {"{}", 0, 0, "handle is not an array\n"}}) {
    const LogCapture log;
    const HandlePtr array = parse(source);
    const bool isKept = kept.starts_with('[');

    const HandlePtr copy{ZAL_Array_GetSubArray(array.get(), start, count)};
    EXPECT_EQ(textOf(array.get()), source);
    EXPECT_EQ(copy ? textOf(copy.get()) : "", isKept ? kept : "");
    EXPECT_EQ(ZAL_Array_Prune(array.get(), start, count), isKept ? 1 : 0) << kept;
    EXPECT_EQ(textOf(array.get()), isKept ? kept : source);
    EXPECT_EQ(log.count("ZAL_Array_Prune(): " + kept), isKept ? 0 : 2);
  }
}

TEST(ArrayCut, TakesTheNodesFromTheHandlesOfDeletedElements) {
  const HandlePtr top{ZAL_Object_Create()};
  ZAL_ObjectHandle list = ZAL_Object_AddArray(top.get(), "list");
  ZAL_ObjectHandle elements[4];
  for (ZAL_ObjectHandle& element : elements) element = ZAL_Object_AddArray(ZAL_Array_AddObject(list), "inner");

  EXPECT_EQ(ZAL_Array_Prune(list, 1, -1), 1);
  const HandlePtr view{ZAL_Object_GetArray(top.get(), "list")};
  EXPECT_EQ(ZAL_Array_Prune(view.get(), 0, 2), 1);

  for (std::size_t i = 0; i < std::size(elements); ++i) {
    const int isAlive = i == 1 || i == 2 ? 1 : 0;
    EXPECT_EQ(ZAL_Array_AddInt32(elements[i], static_cast<std::int32_t>(i)), isAlive) << i;
  }
  EXPECT_EQ(textOf(top.get()), R"({"list":[{"inner":[1]},{"inner":[2]}]})");
}

TEST(ArrayCut, TakesLinearTime) {
  const HandlePtr array{ZAL_Array_Create()};
  const std::clock_t filling = cpuTime([&] {
    for (std::int32_t i = 0; i < 100000; ++i) ZAL_Array_AddInt32(array.get(), i);
  });

  const std::clock_t cutting = cpuTime([&] { EXPECT_EQ(ZAL_Array_Prune(array.get(), 25000, 50000), 1); });

  EXPECT_EQ(cJSON_GetArraySize(ZAL_Object_GetInternal(array.get())), 50000);
  EXPECT_LT(cutting, 20 * filling);  // one walk from the front for each deleted element would take a hundred times that
}

TEST(ArrayGetters, ReadElementsByTheirType) {
  const HandlePtr array = parse(R"([4294967299,"2.5x","true",null])");
  std::int32_t narrow = 0;
  double real = 0;
  std::uint8_t truth = 0;
  EXPECT_EQ(ZAL_Array_GetInt32(array.get(), 0, &narrow), 1);
  EXPECT_EQ(ZAL_Array_GetDouble(array.get(), 1, &real), 1);
  EXPECT_EQ(ZAL_Array_GetBool(array.get(), 2, &truth), 1);
  for (const std::int32_t index : {3, 4, -1}) EXPECT_EQ(ZAL_Array_GetInt32(array.get(), index, &narrow), 0) << index;
  EXPECT_EQ(std::tuple(narrow, real, truth), std::tuple(3, 2.5, 1));
}

TEST(ArrayGetters, CopyTextsAndGiveViews) {
  const HandlePtr array = parse(R"(["abc","abcd",{"n":1}])");
  const LogCapture log;
  char buffer[4] = "";

  EXPECT_EQ(ZAL_Array_GetString(array.get(), 0, buffer, sizeof buffer), 1);
  buffer[0] = '\0';
  EXPECT_EQ(ZAL_Array_GetString(array.get(), 1, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "abc");
  const HandlePtr object{ZAL_Array_GetObject(array.get(), 2)};
  EXPECT_EQ(textOf(object.get()), R"({"n":1})");
  EXPECT_EQ(ZAL_Array_GetArray(array.get(), 2), nullptr);
  EXPECT_THAT(log.text(), HasSubstr("ZAL_Array_GetString(): insufficient buffer size\n"));
  EXPECT_THAT(log.text(), HasSubstr("ZAL_Array_GetArray(): failed to retrieve item\n"));
}

TEST(ArrayRelease, LeavesTheTreeOfAnArrayToTheArraysOwnFunction) {
  ZAL_ObjectHandle array = ZAL_Array_Create();
  cJSON* node = ZAL_Object_GetInternal(array);
  ZAL_Array_AddObject(array);

  ZAL_Object_Destroy(array);

  EXPECT_EQ(cJSON_GetArraySize(node), 1);
  cJSON_Delete(node);
}

}  // namespace
