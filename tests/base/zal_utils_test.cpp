#include <zal/zal_runtime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ostream>
#include <string>
#include <thread>

#include "support/memory.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;

class Files : public ::testing::Test {
 protected:
  Files() { writeFile(ten_, "0123456789"), writeFile(empty_, ""); }
  const TempDir dir_;
  const std::string ten_ = dir_.file("ten%s");
  const std::string empty_ = dir_.file("empty");
  const std::string missing_ = dir_.file("missing%s");
  const LogCapture log_;
};

TEST_F(Files, AreReadAsTextAsBytesOrUpToASize) {
  std::size_t count = 0;
  const zal::CPtr<char> text{ZAL_GetFileContent(ten_.c_str())};
  const zal::CPtr<void> bytes{ZAL_GetFileContentBinary(ten_.c_str(), &count)};
  const zal::CPtr<char> proc{ZAL_GetFileContentProc("/proc/meminfo", 4096)};
  const zal::CPtr<char> begin{ZAL_GetFileContentProc("/proc/meminfo", 9)};
  EXPECT_EQ(log_.text(), "");
  const zal::CPtr<char> none{ZAL_GetFileContentProc("/proc/meminfo", 0)};
  const zal::CPtr<char> empty{ZAL_GetFileContentProc(empty_.c_str(), 16)};

  EXPECT_STREQ(text.get(), "0123456789");
  EXPECT_EQ(std::string(static_cast<char*>(bytes.get()), count), "0123456789");
  EXPECT_THAT(proc.get(), ::testing::ContainsRegex("^MemTotal:.*\nMemFree:"));
  EXPECT_STREQ(begin.get(), "MemTotal");
  EXPECT_STREQ(none.get(), "");
  EXPECT_STREQ(empty.get(), "");
  EXPECT_TRUE(log_.contains("ZAL_GetFileContentProc - fread(" + empty_ + ") returned 0 bytes \n"));
}

TEST_F(Files, WithoutASizeOrAReaderGiveNothing) {
  const std::string fifo = dir_.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::size_t count = 7;
  for (const char* path :
       {empty_.c_str(), missing_.c_str(), fifo.c_str(), "/proc/meminfo", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(ZAL_GetFileContentBinary(path, &count), nullptr);
  for (const char* path : {missing_.c_str(), static_cast<const char*>(nullptr)})
    EXPECT_EQ(ZAL_GetFileContentProc(path, 16), nullptr);
  EXPECT_EQ(ZAL_GetFileContentProc(ten_.c_str(), SIZE_MAX), nullptr);
  EXPECT_EQ(log_.text(), "");
  EXPECT_EQ(count, 7U);
}

// Attributes of sysfs have a page by their size and a few bytes in fact; directories have a size and no bytes.
TEST_F(Files, ThatGiveLessThanTheyPromisedAreLogged) {
  const std::string attribute = "/sys/devices/system/cpu/online";
  if (ZAL_GetFileSize(attribute.c_str()) != 4096 || ZAL_GetFileSize("/") == 0) GTEST_SKIP() << "no such files here";
  std::size_t count = 0;

  const zal::CPtr<void> bytes{ZAL_GetFileContentBinary(attribute.c_str(), &count)};
  EXPECT_EQ(ZAL_GetFileContent("/"), nullptr);

  ASSERT_NE(bytes, nullptr);
  EXPECT_TRUE(log_.contains("(): read(" + attribute + ") returned " + std::to_string(count) +
                            " bytes, but fstat says it should be 4096 \n"));
  EXPECT_TRUE(log_.contains("(): read(/) returned -1 \n")) << log_.text();
}

TEST_F(Files, TellTheirKindAndSizeEvenBeyondFourGigabytes) {
  EXPECT_EQ(ZAL_IsRegularFile(ten_.c_str()), 1);
  EXPECT_EQ(ZAL_IsRegularFile("/"), 0);
  EXPECT_EQ(ZAL_IsRegularFile(nullptr), 0);
  EXPECT_EQ(ZAL_GetFileSize(ten_.c_str()), 10U);
  EXPECT_EQ(ZAL_GetFileSize(nullptr), 0U);
  if (truncate64(ten_.c_str(), 5368709120) == 0) {  // sparse, where the file system can
    EXPECT_EQ(ZAL_GetFileSize(ten_.c_str()), 1073741824U);
  }
  EXPECT_EQ(log_.text(), "");

  EXPECT_EQ(ZAL_IsRegularFile(missing_.c_str()), 0);
  EXPECT_EQ(ZAL_GetFileSize(missing_.c_str()), 0U);
  EXPECT_EQ(log_.count("(): <!-- ERROR getting stats for file (" + missing_ + ") -->\n"), 2);
}

struct TempDirCase {
  const char* name;
  const char* wish;
  const char* expected;
};
void PrintTo(const TempDirCase& made, std::ostream* out) {
  *out << made.wish;
}
// Each case runs in a process of its own, since the directory is decided once.
class TemporaryDirectory : public ::testing::TestWithParam<TempDirCase> {};

TEST_P(TemporaryDirectory, IsDecidedOnceFromTheEnvironment) {
  setenv("TMPDIR", GetParam().wish, 1);
  std::thread other{[] { EXPECT_STREQ(ZAL_GetTempDir(), GetParam().expected); }};
  EXPECT_STREQ(ZAL_GetTempDir(), GetParam().expected);
  other.join();

  setenv("TMPDIR", "/usr", 1);
  std::array<char, 8> cut{};
  ZAL_PrependTempDir(cut.data(), cut.size(), "socket");
  ZAL_PrependTempDir(nullptr, 8, "socket");

  EXPECT_EQ(cut.data(), (std::string{GetParam().expected} + "/socket").substr(0, 7));
}

INSTANTIATE_TEST_SUITE_P(, TemporaryDirectory,
                         ::testing::Values(TempDirCase{"Slashed", "/proc//", "/proc"}, TempDirCase{"Root", "///", "/"},
                                           TempDirCase{"Missing", "/missing", "/tmp"},
                                           TempDirCase{"File", "/proc/stat", "/tmp"}),
                         [](const auto& made) { return made.param.name; });

TEST(Helpers, TrimKnowTagsAndRoundUp) {
  for (const auto& [line, expected] : {std::pair{"a\n", "a"}, {"a\n\n", "a\n"}, {"a", "a"}, {"\n", ""}, {"", ""}}) {
    std::string text = line;
    ZAL_TrimLine(text.data());
    EXPECT_STREQ(text.c_str(), expected);
  }
  ZAL_TrimLine(nullptr);

  for (const char* tag : {"include", "exclude", "range"}) EXPECT_EQ(ZAL_CheckForSpecialTag(tag), 1) << tag;
  for (const char* tag : {"Range", "ranges", ""}) EXPECT_EQ(ZAL_CheckForSpecialTag(tag), 0) << tag;
  EXPECT_EQ(ZAL_CheckForSpecialTag(nullptr), 0);

  EXPECT_EQ(ZAL_RoundUp512(1000000000), 1073741824U);
  EXPECT_EQ(ZAL_RoundUp512(1073741824), 1610612736U);
  EXPECT_EQ(ZAL_RoundUp512(1099511627777), 1100048498688U);
}

TEST(Helpers, TellTheAddressOfAnInterfaceWhenItFits) {
  for (const auto& [name, size, expected] :
       {std::tuple{"lo", 10U, "127.0.0.1"}, {"lo", 9U, "before"}, {"missing0", 16U, "before"}, {"", 16U, "before"}}) {
    std::array<char, 16> buffer{"before"};
    EXPECT_EQ(ZAL_GetIpFromIfName(name, buffer.data(), size), 0);
    EXPECT_STREQ(buffer.data(), expected) << name << size;
  }
  EXPECT_EQ(ZAL_GetIpFromIfName("lo", nullptr, 16), 0);
  EXPECT_EQ(ZAL_GetIpFromIfName(nullptr, nullptr, 16), 0);
}

TEST(Helpers, WriteTheLocalDateForFileNames) {
  setenv("TZ", "UTC0", 1);
  const std::string utc = ZAL_GetDateString();
  setenv("TZ", "XYZ-14", 1);  // a changed time zone counts at once
  const std::string east = ZAL_GetDateString();

  EXPECT_THAT(utc, ::testing::MatchesRegex("20[0-9]{6}-[0-2][0-9][0-5][0-9][0-6][0-9]"));
  EXPECT_LT(utc.substr(0, 11), east.substr(0, 11));
}

}  // namespace
