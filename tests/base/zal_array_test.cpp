#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zal/zal_object.h>

#include <iterator>
#include <limits>
#include <tuple>
#include <vector>

#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using ::testing::HasSubstr;

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();

TEST(ArrayElements, PrintAsTheyWereAppended) {
  const HandlePtr array{ZAL_Array_Create()};

  for (const int added : {ZAL_Array_AddString(array.get(), "a"), ZAL_Array_AddNumber(array.get(), 2.5),
                          ZAL_Array_AddInt32(array.get(), -1), ZAL_Array_AddUint32(array.get(), 4000000000U),
                          ZAL_Array_AddInt64(array.get(), -(1LL << 40)), ZAL_Array_AddUint64(array.get(), 1ULL << 40),
                          ZAL_Array_AddDouble(array.get(), 0.1), ZAL_Array_AddBool(array.get(), 2),
                          ZAL_Array_AddJson(array.get(), cJSON_CreateObject())})
    EXPECT_EQ(added, 1);
  ZAL_Array_AddBlob(array.get(), "abcd", 4);
  EXPECT_EQ(ZAL_Object_AddInt32(ZAL_Array_AddObject(array.get()), "n", 1), 1);
  EXPECT_EQ(ZAL_Array_AddInt32(ZAL_Array_AddArray(array.get()), 1), 1);
  for (const int refused : {ZAL_Array_AddString(array.get(), nullptr), ZAL_Array_AddJson(array.get(), nullptr),
                            ZAL_Array_AddJson(array.get(), ZAL_Object_GetInternal(array.get()))})
    EXPECT_EQ(refused, 0);

  EXPECT_EQ(take(ZAL_Array_DumpOutput(array.get())),
            R"(["a",2.5,-1,4000000000,-1099511627776,1099511627776,0.1,true,{},"YWJjZA==",{"n":1},[1]])");
  const HandlePtr object{ZAL_Object_Create()};
  EXPECT_EQ(ZAL_Array_AddInt32(object.get(), 1) + ZAL_Array_AddJson(object.get(), cJSON_CreateTrue()), 0);
  EXPECT_EQ(textOf(object.get()), "{}");
}

TEST(ArrayCut, KeepsTheRunInPlaceAndInACopy) {
  const std::string letters = R"(["a","b","c","d","e"])";
  struct Row {
    std::string source;
    std::int32_t start, count;
    std::string kept;  ///< or why it was refused
  };
  const std::vector<Row> rows = {
      {letters, 1, 2, R"(["b","c"])"},
      {letters, 1, -1, R"(["b","c","d","e"])"},
      {letters, 0, 0, "[]"},
      {letters, 3, 2, R"(["d","e"])"},
      {letters, -1, 2, R"(["d","e"])"},
      {letters, -1, 0, "[]"},
      {letters, -1, 9, letters},
      {letters, -1, -1, letters},
      {"[]", -1, 2, "[]"},
      {letters, 5, 1, "array start index: 5, out of bounds: 5\n"},
      {letters, 3, 3, "invalid input: arraySize: 5, startIndex: 3, numElements: 3\n"},
      {letters, 1, kMost, "invalid input: arraySize: 5, startIndex: 1, numElements: 2147483647\n"},
      {"[]", 0, -1, "array start index: 0, out of bounds: 0\n"},
      {"{}", 0, 0, "handle is not an array\n"}};
  for (const Row& row : rows) {
    const LogCapture log;
    const HandlePtr array = parse(row.source);
    const bool isKept = row.kept.starts_with('[');

    const HandlePtr copy{ZAL_Array_GetSubArray(array.get(), row.start, row.count)};
    EXPECT_EQ(textOf(array.get()), row.source);
    EXPECT_EQ(ZAL_Array_Prune(array.get(), row.start, row.count), isKept ? 1 : 0) << row.kept;

    EXPECT_EQ(textOf(array.get()), isKept ? row.kept : row.source);
    EXPECT_EQ(copy ? textOf(copy.get()) : "", isKept ? row.kept : "");
    EXPECT_EQ(log.count("ZAL_Array_Prune(): " + row.kept), isKept ? 0 : 2);
    EXPECT_EQ(log.count("ZAL_Array_GetSubArray(): failed to prune array\n"), isKept ? 0 : 1);
  }

  const LogCapture log;
  EXPECT_EQ(ZAL_Array_GetSubArray(nullptr, 0, 1), nullptr);
  EXPECT_THAT(log.text(), HasSubstr("duplicateArray(): Unable to create cJSON Object\n"));
  EXPECT_THAT(log.text(), HasSubstr("ZAL_Array_GetSubArray(): array duplication failure\n"));
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
  constexpr std::int32_t kCount = 100000;
  const double filling = cpuSeconds([&] {
    for (std::int32_t i = 0; i < kCount; ++i) ZAL_Array_AddInt32(array.get(), i);
  });

  const double cutting = cpuSeconds([&] { EXPECT_EQ(ZAL_Array_Prune(array.get(), kCount / 4, kCount / 2), 1); });

  std::uint32_t size = 0;
  EXPECT_EQ(ZAL_Array_GetSize(array.get(), &size), 1);
  EXPECT_EQ(size, 50000U);
  EXPECT_LT(cutting, 20 * filling);  // one walk from the front for each deleted element would take a hundred times that
}

TEST(ArrayGetters, ReadElementsByTheirType) {
  const HandlePtr array = parse(R"([4294967299,0.5,"2.5x","true","falsehood","no",true,false,null,{},[]])");
  using Row = std::tuple<std::int32_t, int, std::int64_t, int>;  // index, values; -1: nothing
  for (const auto& [index, narrow, real, truth] : std::vector<Row>{{0, 3, 4294967299, 1},
                                                                   {1, 0, 0, 0},
                                                                   {2, -1, 2, -1},
                                                                   {3, -1, 0, 1},
                                                                   {4, -1, 0, 0},
                                                                   {5, -1, 0, -1},
                                                                   {6, -1, -1, 1},
                                                                   {7, -1, -1, 0},
                                                                   {8, -1, -1, -1},
                                                                   {9, -1, -1, -1},
                                                                   {11, -1, -1, -1},
                                                                   {-1, -1, -1, -1}}) {
    SCOPED_TRACE(index);
    const LogCapture log;
    std::int32_t foundNarrow = -1;
    double foundReal = -1;
    std::uint8_t foundTruth = 9;
    EXPECT_EQ(ZAL_Array_GetInt32(array.get(), index, &foundNarrow), narrow >= 0);
    EXPECT_EQ(ZAL_Array_GetDouble(array.get(), index, &foundReal), real >= 0);
    EXPECT_EQ(ZAL_Array_GetBool(array.get(), index, &foundTruth), truth >= 0);
    EXPECT_EQ(foundNarrow, narrow);
    EXPECT_EQ(static_cast<std::int64_t>(foundReal), real);
    EXPECT_EQ(foundTruth, truth < 0 ? 9 : truth);
    const bool isThere = index >= 0 && index < 11;
    EXPECT_EQ(log.count("ZAL_Array_GetInt32(): Item is not a number\n"), isThere && narrow < 0 ? 1 : 0);
  }
}

TEST(ArrayGetters, CopyTextsAndGiveViews) {
  const HandlePtr array = parse(R"(["abc","abcd",1,{"n":1},[2]])");
  const LogCapture log;
  char buffer[4] = "";

  EXPECT_EQ(ZAL_Array_GetString(array.get(), 0, buffer, sizeof buffer), 1);
  EXPECT_STREQ(buffer, "abc");
  buffer[0] = '\0';
  EXPECT_EQ(ZAL_Array_GetString(array.get(), 1, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(ZAL_Array_GetString(array.get(), 2, buffer, sizeof buffer), 0);
  EXPECT_THAT(log.text(), HasSubstr("ZAL_Array_GetString(): insufficient buffer size\n"));
  EXPECT_THAT(log.text(), HasSubstr("ZAL_Array_GetString(): Item is not a string\n"));

  const HandlePtr object{ZAL_Array_GetObject(array.get(), 3)};
  const HandlePtr inner{ZAL_Array_GetArray(array.get(), 4)};
  EXPECT_EQ(textOf(object.get()) + textOf(inner.get()), R"({"n":1}[2])");
  EXPECT_EQ(ZAL_Array_GetObject(array.get(), 5), nullptr);
  EXPECT_EQ(log.count("failed to retrieve item\n"), 0);
  EXPECT_EQ(ZAL_Array_GetObject(array.get(), 4), nullptr);
  EXPECT_EQ(ZAL_Array_GetArray(array.get(), 3), nullptr);
  EXPECT_EQ(log.count("failed to retrieve item\n"), 2);
}

TEST(ArrayFailures, AreLoggedInTheNameOfTheFunction) {
  const HandlePtr object{ZAL_Object_Create()};
  std::uint32_t size = 0;
  std::int32_t narrow = 0;
  std::uint8_t truth = 0;
  char text[4];
  const LogCapture log;

  EXPECT_EQ(ZAL_Array_GetSize(nullptr, &size) + ZAL_Array_GetInt32(object.get(), 0, nullptr), 0);
  EXPECT_EQ(ZAL_Array_GetSize(object.get(), &size) + ZAL_Array_GetString(object.get(), 0, text, 4), 0);
  EXPECT_EQ(ZAL_Array_GetInt32(object.get(), 0, &narrow) + ZAL_Array_GetBool(object.get(), 0, &truth), 0);
  EXPECT_EQ(ZAL_Array_GetObject(nullptr, 0), nullptr);
  EXPECT_EQ(ZAL_Array_DumpOutput(nullptr), nullptr);

  for (const char* line :
       {"GetSize(): invalid handle\n", "GetInt32(): invalid handle\n", "GetSize(): handle is not an array\n",
        "GetString(): handle is not an array\n", "GetInt32(): handle not an array\n",
        "GetBool(): handle not an array\n", "GetObject(): handle is not an array\n",
        "ZAL_Array_DumpOutput(): Invalid input to ZAL_Array_DumpOutput\n"})
    EXPECT_EQ(log.count(line), 1) << line;
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
