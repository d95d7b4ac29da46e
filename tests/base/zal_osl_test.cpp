#include <zal/zal_runtime.h>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <array>
#include <ctime>
#include <string>
#include <utility>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;

bool clockFails = false;

TEST(BoundedStrings, CopyAndAppendNoMoreThanFits) {
  const struct {
    std::string source;
    std::size_t size, copied, appended;  // onto "abc"
    std::string afterCopy, afterAppend;
  } cases[] = {{"abcdef", 4, 6, 9, "abc", "abc"}, {"def", 8, 3, 6, "def", "abcdef"}, {"def", 7, 3, 6, "def", "abcdef"},
               {"def", 5, 3, 6, "def", "abcd"},   {"xyz", 0, 3, 3, "abc", "abc"},    {"xyz", 3, 3, 6, "xy", "abc"},
               {"xyz", 1, 3, 4, "", "abc"},       {"", 4, 0, 3, "", "abc"}};
  for (const auto& [source, size, copied, appended, afterCopy, afterAppend] : cases) {
    std::array<char, 8> copy{"abc"};
    std::array<char, 8> append{"abc"};

    EXPECT_EQ(zalstrlcpy(copy.data(), source.c_str(), size), copied) << source << size;
    EXPECT_EQ(zalstrlcat(append.data(), source.c_str(), size), appended) << source << size;

    EXPECT_EQ(copy.data(), afterCopy);
    EXPECT_EQ(append.data(), afterAppend);
  }
}

TEST(Clock, TellsTheTimeOrLogsAndGivesZero) {
  const LogCapture log;
  EXPECT_DOUBLE_EQ(timevalToDouble({1700000000, 250000}), 1700000000.25);
  const auto before = static_cast<double>(ZAL_GetUnsignedTimestamp());
  EXPECT_LE(before, ZAL_GetTimestamp());
  EXPECT_NEAR(before, static_cast<double>(std::time(nullptr)), 60);

  clockFails = true;
  EXPECT_EQ(ZAL_GetTimestamp(), 0);
  EXPECT_EQ(ZAL_GetUnsignedTimestamp(), 0);

  EXPECT_EQ(log.count("Timestamp(): Failure gettimeofday -1"), 2) << log.text();
}

TEST(Host, SleepsNamesTheSystemAndGivesRandomBytes) {
  const std::uint64_t start = uv_hrtime();
  ZAL_Sleep(20);
  EXPECT_GE(uv_hrtime() - start, 19000000U);

  utsname expected{};
  uv_utsname_t name{};
  ASSERT_EQ(uname(&expected), 0);
  ASSERT_EQ(ZAL_Uname(&name), 0);
  EXPECT_STREQ(name.machine, expected.machine);

  std::array<unsigned char, 513> first{};
  std::array<unsigned char, 513> second{};
  ZAL_ReadRandom(first.data(), 512);
  ZAL_ReadRandom(second.data(), 512);
  for (const int length : {0, -1}) ZAL_ReadRandom(second.data() + 512, length);
  ZAL_ReadRandom(nullptr, 1);
  EXPECT_NE(first, second);
  EXPECT_EQ(first[512] | second[512], 0);
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
  EXPECT_EQ(sysfs_set(dir.path().c_str(), "state", 1), 0);
  EXPECT_EQ(get(dir.path()), (std::pair{0, 1U}));
  writeFile(dir.file("s"), "9");  // what this path would name if it were cut to 255 characters
  EXPECT_EQ(get(dir.path().string() + std::string(253 - dir.path().string().size(), '/')), (std::pair{-1, 0U}));

  for (const auto& [text, expected] :
       {std::pair{" 4294967295\n", 4294967295U}, {"4294967296", 4294967295U}, {"on", 0U}, {"", 0U}}) {
    writeFile(dir.file("state"), text);
    EXPECT_EQ(get(dir.path()), (std::pair{0, expected})) << text;
  }
}

}  // namespace

// Stands in for the C library's clock, so that a test can let it fail.
extern "C" int gettimeofday(timeval* now, void*) noexcept {
  *now = {std::time(nullptr), 999999};
  return clockFails ? -1 : 0;
}
