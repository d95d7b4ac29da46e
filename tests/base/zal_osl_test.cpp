#include <zal/zal_runtime.h>
#include <zal/zal_system.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <tuple>

#include "base/zal_osl/memory_uptime.hpp"
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

TEST(Uptime, IsTheFirstNumberOfItsFileInSinglePrecision) {
  using Row = std::pair<std::string, std::optional<float>>;
  for (const auto& [text, expected] :
       {Row{"350735.47 234388.90\n", 350735.46875F}, {" 7,5 1\n", 7.F}, {"up 5", std::nullopt}})
    EXPECT_EQ(zal::osl::uptimeIn(text), expected) << text;
  EXPECT_EQ(zal::osl::uptimeIn(std::string_view{"12.5", 2}), 12.F) << "what is behind the text does not count";

  for (const auto& [seconds, expected] :
       {std::pair{350735.46875F, 350735456ULL}, {0.9994F, 999ULL}, {-1.F, 0ULL}, {std::nanf(""), 0ULL}})
    EXPECT_EQ(zal::osl::toMilliseconds(seconds), expected) << seconds;
  EXPECT_GT(zal::osl::toMilliseconds(std::numeric_limits<float>::max()), 1ULL << 62);
}

TEST(Uptime, IsThatOfThisMachine) {
  const auto now = [] { return std::stof(readFile("/proc/uptime")); };
  for (const auto& [inSeconds, inMilliseconds] :
       {std::pair{&ZAL_GetUptimeFloat, &ZAL_GetUptime}, {&ZAL_GetUpTimerFloat, &ZAL_GetUpTime}}) {
    float seconds = -1;
    std::uint64_t milliseconds = 7;
    const float before = now();
    EXPECT_EQ(inSeconds(&seconds) + inMilliseconds(&milliseconds), 0);
    EXPECT_GE(seconds, before);
    EXPECT_GE(milliseconds, zal::osl::toMilliseconds(seconds));
    EXPECT_LE(milliseconds, zal::osl::toMilliseconds(now()));
    EXPECT_EQ(inSeconds(nullptr) + inMilliseconds(nullptr), 0);
  }
}

TEST(MemoryFigures, StayAsTheyWereWhereTheTextHasNone) {
  const std::string old = "MemTotal:         998380 kB\nMemFree:          123456 kB\nBuffers:           1 kB\n";
  const std::tuple<std::string, std::uint64_t, std::uint64_t, std::uint64_t> cases[] = {
      {old + "MemAvailable:   98765432 kB\n", 998380, 123456, 98765432},
      {old, 998380, 123456, 3},
      {"\nMemAvailable:5", 1, 2, 5},
      {"MemTotal:    1", 1, 2, 3},
      {"MemTotal:       many kB\nMemFree", 1, 2, 3}};
  for (const auto& [text, total, free, available] : cases) {
    ZAL_MemoryInfo info{1, 2, 3};
    zal::osl::readMemory(text, info);
    EXPECT_EQ(std::tie(info.total, info.free, info.available), std::tie(total, free, available)) << text;
  }
}

TEST(MemoryFigures, AreThoseOfThisMachine) {
  ZAL_MemoryInfo info{};
  EXPECT_EQ(ZAL_Osl_GetMemoryInfo(&info) + ZAL_Osl_GetMemoryInfo(nullptr), 0);
  EXPECT_TRUE(readFile("/proc/meminfo").find(" " + std::to_string(info.total) + " kB") < 40) << info.total;
  for (const std::uint64_t part : {info.free, info.available}) EXPECT_TRUE(0 < part && part <= info.total) << part;
}

}  // namespace
