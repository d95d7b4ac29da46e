// The printing of trees must give the bytes that cJSON's own gives, which is the reference here.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "base/zal_object.hpp"

namespace {

using zal::JsonPtr;

std::string text(char* printed) {
  const zal::CPtr<char> owner{printed};
  return printed == nullptr ? "(null)" : printed;
}

std::string ours(const cJSON* node) {
  return text(zal::printJson(node).release());
}

TEST(Print, WritesNumbersDigitForDigit) {
  constexpr int kEach = 100000;
  std::mt19937_64 random{20240131};
  const double special[] = {0.0,     -0.0, 0.1,     1e15,   1e15 - 1, 1e15 + 0.5,
                            0x1p53,  1e21, 1e-7,    5e-324, -1.5,     1.7e9 + 0.123456,
                            DBL_MAX, NAN,  INFINITY};
  std::vector<double> numbers{std::begin(special), std::end(special)};
  for (int i = 0; i < kEach; ++i) {
    const std::uint64_t bits = random();
    const auto signedBits = static_cast<std::int64_t>(bits);
    numbers.push_back(std::bit_cast<double>(bits));                               // any double
    numbers.push_back(static_cast<double>(signedBits >> (bits % 64)));            // integers of all lengths
    numbers.push_back(static_cast<double>(signedBits % 1000000) / 1000);          // readings
    numbers.push_back(1.7e9 + static_cast<double>(bits % 100000000) / 1e6);       // timestamps
    numbers.push_back(std::ldexp(bits >> 11 | 1, -static_cast<int>(bits % 60)));  // with and without halves to round
    numbers.push_back(std::nextafter(std::pow(10, static_cast<int>(bits % 18) - 4), bits % 3 == 0 ? 0 : 1e300));
    numbers.push_back(std::ldexp(1.0, static_cast<int>(bits % 2000) - 1000) * (1 + static_cast<double>(bits % 7)));
  }
  for (const double number : numbers) {
    const JsonPtr node{cJSON_CreateNumber(number)};
    ASSERT_EQ(ours(node.get()), text(cJSON_PrintUnformatted(node.get()))) << number;
  }
}

TEST(Print, WritesEveryByteOfTextsAndEveryKindOfNode) {
  std::string everyByte;
  for (int byte = 1; byte < 256; ++byte) everyByte += static_cast<char>(byte);
  const JsonPtr tree{cJSON_Parse(R"({"a":[1,[],{},[[2],{"b":null}],true],"":false,"c":{"d":{"e":"f"}},"g":-2.5e-7})")};
  cJSON_AddStringToObject(tree.get(), everyByte.c_str(), everyByte.c_str());
  cJSON_AddRawToObject(tree.get(), "raw", "2.500000");
  cJSON_AddItemReferenceToObject(tree.get(), "again", tree->child);
  EXPECT_EQ(ours(tree.get()), text(cJSON_PrintUnformatted(tree.get())));
  EXPECT_EQ(ours(tree->child), text(cJSON_PrintUnformatted(tree->child))) << "a part, without what follows it";

  cJSON_AddNullToObject(tree.get(), "nothing")->type = cJSON_Invalid;
  EXPECT_EQ(ours(tree.get()), "(null)");
  EXPECT_EQ(ours(nullptr), "(null)");
}

}  // namespace
