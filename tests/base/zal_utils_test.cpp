#include <zal/zal_runtime.h>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/memory.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;

class Files : public ::testing::Test {
 protected:
  Files() { writeFile(ten_, "0123456789"); }
  const TempDir dir_;
  const std::string ten_ = dir_.file("ten%s");
  const std::string missing_ = dir_.file("missing%s");
  const LogCapture log_;
};

TEST_F(Files, AreReadWholeOrUpToASize) {
  std::size_t count = 0;
  const zal::CPtr<void> bytes{ZAL_GetFileContentBinary(ten_.c_str(), &count)};
  const zal::CPtr<char> begin{ZAL_GetFileContentProc("/proc/meminfo", 9)};
  EXPECT_EQ(log_.text(), "");
  const zal::CPtr<char> none{ZAL_GetFileContentProc("/proc/meminfo", 0)};

  EXPECT_EQ(std::string(static_cast<char*>(bytes.get()), count), "0123456789");
  EXPECT_STREQ(begin.get(), "MemTotal");
  EXPECT_STREQ(none.get(), "");
  EXPECT_TRUE(log_.contains("ZAL_GetFileContentProc - fread(/proc/meminfo) returned 0 bytes \n"));
}

TEST_F(Files, WithoutASizeOrAReaderGiveNothing) {
  const std::string fifo = dir_.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::size_t count = 7;
  for (const char* path : {missing_.c_str(), fifo.c_str(), "/proc/meminfo", static_cast<const char*>(nullptr)})
    EXPECT_EQ(ZAL_GetFileContentBinary(path, &count), nullptr);
  EXPECT_EQ(count, 7U);
  EXPECT_EQ(ZAL_GetFileContentProc(missing_.c_str(), 16), nullptr);
  EXPECT_EQ(ZAL_GetFileContentProc(ten_.c_str(), SIZE_MAX), nullptr);
}

// Attributes of sysfs have a page by their size and a few bytes in fact; directories have a size and no bytes.
TEST_F(Files, ThatGiveLessThanTheyPromisedAreLogged) {
  const std::string attribute = "/sys/devices/system/cpu/online";
  if (ZAL_GetFileSize(attribute.c_str()) != 4096 || ZAL_GetFileSize("/") == 0) GTEST_SKIP() << "no such files here";
  std::size_t count = 0;

  const zal::CPtr<void> bytes{ZAL_GetFileContentBinary(attribute.c_str(), &count)};
  EXPECT_EQ(ZAL_GetFileContent("/"), nullptr);

  EXPECT_TRUE(log_.contains("(): read(" + attribute + ") returned " + std::to_string(count) +
                            " bytes, but fstat says it should be 4096 \n"));
  EXPECT_TRUE(log_.contains("(): read(/) returned -1 \n")) << log_.text();
}

TEST_F(Files, TellTheirKindAndSizeEvenBeyondFourGigabytes) {
  EXPECT_EQ(ZAL_IsRegularFile(ten_.c_str()), 1);
  EXPECT_EQ(ZAL_IsRegularFile("/"), 0);
  EXPECT_EQ(ZAL_GetFileSize(nullptr), 0U);
  if (truncate64(ten_.c_str(), 5368709120) == 0) {  // sparse, where the file system can
    EXPECT_EQ(ZAL_GetFileSize(ten_.c_str()), 1073741824U);
  }
  EXPECT_EQ(log_.text(), "");
}

// Each wish with the directory that comes of it. Each runs in a process of its own, since the directory is decided
// once.
constexpr std::array<std::array<const char*, 2>, 4> kWishes{
    {{"/proc//", "/proc"}, {"///", "/"}, {"/missing", "/tmp"}, {"/proc/stat", "/tmp"}}};
class TemporaryDirectory : public ::testing::TestWithParam<std::size_t> {};

TEST_P(TemporaryDirectory, IsDecidedOnceFromTheEnvironment) {
  const char* const expected = kWishes[GetParam()][1];
  setenv("TMPDIR", kWishes[GetParam()][0], 1);
  std::thread other{[&] { EXPECT_STREQ(ZAL_GetTempDir(), expected); }};
  EXPECT_STREQ(ZAL_GetTempDir(), expected);
  other.join();

  setenv("TMPDIR", "/usr", 1);
  std::array<char, 8> cut{};
  ZAL_PrependTempDir(cut.data(), cut.size(), "socket");
  ZAL_PrependTempDir(nullptr, 8, "socket");
  EXPECT_EQ(cut.data(), (std::string{expected} + "/socket").substr(0, 7));
}

INSTANTIATE_TEST_SUITE_P(, TemporaryDirectory, ::testing::Range(std::size_t{0}, kWishes.size()));

TEST(Helpers, TrimOneLineEndAndRoundUp) {
  for (const auto& [line, expected] : {std::pair{"a\n\n", "a\n"}, {"a", "a"}, {"\n", ""}, {"", ""}}) {
    std::string text = line;
    ZAL_TrimLine(text.data());
    EXPECT_STREQ(text.c_str(), expected);
  }

  EXPECT_EQ(ZAL_RoundUp512(1099511627777), 1100048498688U);
}

TEST(Helpers, TellTheAddressOfAnInterfaceWhenItFits) {
  for (const auto& [name, size, expected] :
       {std::tuple{"lo", 10U, "127.0.0.1"}, {"lo", 9U, "before"}, {"missing0", 16U, "before"}, {"", 16U, "before"}}) {
    std::array<char, 16> buffer{"before"};
    EXPECT_EQ(ZAL_GetIpFromIfName(name, buffer.data(), size), 0);
    EXPECT_STREQ(buffer.data(), expected) << name << size;
  }
  EXPECT_EQ(ZAL_GetIpFromIfName(nullptr, nullptr, 16), 0);
}

}  // namespace
