#include <zal/zal_runtime.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <tuple>

#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;

TEST(BoundedStrings, CopyAndAppendNoMoreThanFits) {
  using Text = const char*;
  using Row = std::tuple<Text, std::size_t, std::size_t, std::size_t, Text, Text>;
  const Row cases[] = {{"abcdef", 4, 6, 9, "abc", "abc"}, {"def", 7, 3, 6, "def", "abcdef"},
                       {"def", 5, 3, 6, "def", "abcd"},   {"xyz", 0, 3, 3, "abc", "abc"},
                       {"xyz", 1, 3, 4, "", "abc"},       {"", 4, 0, 3, "", "abc"}};
  for (const auto& [source, size, copied, appended, afterCopy, afterAppend] : cases) {
    std::array<char, 8> copy{"abc"};
    std::array<char, 8> append{"abc"};
    EXPECT_EQ(zalstrlcpy(copy.data(), source, size), copied) << source << size;
    EXPECT_EQ(zalstrlcat(append.data(), source, size), appended) << source << size;
    EXPECT_STREQ(copy.data(), afterCopy);
    EXPECT_STREQ(append.data(), afterAppend);
  }
}

TEST(Random, FillsTheBufferAndNothingBehindIt) {
  std::array<unsigned char, 513> bytes{};
  ZAL_ReadRandom(bytes.data(), 512);
  ZAL_ReadRandom(bytes.data() + 512, -1);
  ZAL_ReadRandom(nullptr, 1);
  EXPECT_NE(std::count(bytes.begin(), bytes.end(), 0), 513);
  EXPECT_EQ(bytes[512], 0);
}

TEST(SysfsAttribute, HoldsOneNumber) {
  const TempDir dir;
  const auto get = [&](const std::string& directory) {
    std::uint32_t value = 7;
    const int result = sysfs_get(directory.c_str(), "state", &value);
    return std::pair{result, value};
  };
  EXPECT_EQ(get(dir.path()), (std::pair{-1, 0U}));
  EXPECT_EQ(sysfs_set(dir.path().c_str(), "missing/state", 1), -1);

  EXPECT_EQ(sysfs_set(dir.path().c_str(), "state", -42), 0);
  EXPECT_EQ(readFile(dir.file("state")), "-42");
  writeFile(dir.file("s"), "9");  // what this path would name if it were cut to 255 characters
  EXPECT_EQ(get(dir.path().string() + std::string(253 - dir.path().string().size(), '/')), (std::pair{-1, 0U}));

  for (const auto& [text, expected] : {std::pair{" 4294967296\n", 4294967295U}, {"1", 1U}, {"on", 0U}, {"", 0U}}) {
    writeFile(dir.file("state"), text);
    EXPECT_EQ(get(dir.path()), (std::pair{0, expected})) << text;
  }
}

}  // namespace
