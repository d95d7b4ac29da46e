#include <zal/zal_log.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <tuple>

#include "tests/support/log_capture.hpp"
#include "tests/support/temp_dir.hpp"

namespace {

using namespace zal::test;
using ::testing::MatchesRegex;
namespace fs = std::filesystem;

const std::string kStamp = "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\.[0-9]{3}";
const std::string kPlace = " dir/module\\(7\\):speaker\\(\\): ";

void say(int level, const char* text = "said\n") {
  Log_PrintMessage(level, "dir/module", 7, "speaker", "%s", text);
}

TEST(LogLines, PassFromTheThresholdUpToErrorsAndShowTheirLevel) {
  const std::string shown = kStamp + ": said\n";
  const std::string placed = kStamp + kPlace + "said\n";
  using Row = std::tuple<int, int, std::string>;
  const Row cases[] = {{INT_MIN, INT_MIN, " " + shown},
                       {1, 2, "\\.\\.\\. " + shown},
                       {3, 3, "--- " + shown},
                       {3, 4, "\\*\\*\\* " + placed},
                       {5, 5, "### " + placed},
                       {3, 2, ""},
                       {6, 6, ""}};
  for (const auto& [threshold, level, expected] : cases) {
    const LogCapture log;
    ZAL_Log_SetLevel(threshold);
    say(level);
    EXPECT_THAT(log.text(), MatchesRegex(expected)) << threshold << " " << level;
  }
}

TEST(LogLines, ReadTheEnvironmentOnceTheFirstOneHasPassed) {
  const LogCapture log;
  setenv("ZAL_DEBUG_LEVEL", "1", 1);
  setenv("ZAL_DEBUG_DIR", "/missing", 1);

  say(ZAL_LOG_DEBUG, "too early\n");
  errno = EPIPE;
  say(ZAL_LOG_INFO, "first\n");
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(ZAL_Log_GetLevel(), ZAL_LOG_TRACE);
  ZAL_Log_SetLevel(ZAL_LOG_DEBUG);
  say(ZAL_LOG_DEBUG, "then\n");

  EXPECT_THAT(log.text(), MatchesRegex("--- " + kStamp + ": first\n\\.\\.\\. " + kStamp + ": then\n"));
}

TEST(LogEnvironment, MayHaveOtherNamesAndNumbersBeyondInt) {
  debugEnvNames[0] = "MY_LEVEL";
  debugEnvNames[1] = nullptr;
  for (const auto& [text, level] : {std::pair{"99999999999999999999", INT_MAX}, {"-4294967297", INT_MIN}, {"2x", 2}}) {
    setenv("MY_LEVEL", text, 1);
    ZAL_Log_CheckEnv();
    EXPECT_EQ(ZAL_Log_GetLevel(), level) << text;
  }
}

TEST(LogHexDump, AlignsAShortLastLine) {
  const LogCapture log;

  Log_HexDump("ABCDEFG\0\x7fIJKLMN\xffP", 17);
  Log_HexDump("A", -1);

  EXPECT_EQ(log.text(), " 4142434445464700 7f494a4b4c4d4eff |ABCDEFG..IJKLMN.|\n 50" + std::string(31, ' ') + " |P" +
                            std::string(15, ' ') + "|\n");
}

// Two directories and a process, whose names are patterns that match others, and what reached the error stream.
class LogFiles : public ::testing::Test {
 protected:
  LogFiles() { prctl(PR_SET_NAME, "*"), fs::create_directory(mine_), fs::create_directory(other_); }

  static std::set<std::string> namesIn(const fs::path& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator{directory}) names.insert(entry.path().filename());
    return names;
  }

  const TempDir dir_;
  const fs::path mine_ = dir_.path() / "a[b]*\\c";
  const fs::path other_ = dir_.path() / "ab-\\c";
  const std::string name_ = "*.log";
  const LogCapture err_;
};

TEST_F(LogFiles, TakeEveryLineAndMoveWithTheDirectory) {
  setenv("ZAL_DEBUG_DIR", (mine_ / "").c_str(), 1);

  say(ZAL_LOG_ERROR, "one\n");
  EXPECT_EQ(namesIn(mine_), std::set{name_});
  EXPECT_EQ(ZAL_Log_SetDirectory(other_.c_str()), 0);
  say(ZAL_LOG_INFO, "two\n");

  EXPECT_EQ(namesIn(mine_).size(), 0U);
  EXPECT_THAT(readFile(other_ / name_), MatchesRegex("### " + kStamp + kPlace + "one\n--- " + kStamp + ": two\n"));
  EXPECT_EQ(err_.text(), "");
}

TEST_F(LogFiles, LeaveTheTextToTheStreamWhenTheyCannotServe) {
  const std::string longest = dir_.path().string() + std::string(62 - dir_.path().string().size(), '/');
  const LogCapture out{1};
  fs::create_directory(mine_ / name_);

  for (const char* refused : {static_cast<const char*>(nullptr), "", "/missing%n/"})
    EXPECT_EQ(ZAL_Log_SetDirectory(refused), -1);
  EXPECT_EQ(ZAL_Log_SetDirectory((longest + "/").c_str()), 0);  // ignored, hence not in the way of the stream
  zal_fprintf(stderr, "off\n");
  EXPECT_EQ(zal_fprintf(nullptr, "%d", 5), 0);
  EXPECT_EQ(ZAL_Log_SetDirectory(longest.c_str()), 0);
  zal_fprintf(stderr, "to the file\n");
  EXPECT_EQ(ZAL_Log_SetDirectory(mine_.c_str()), 0);
  zal_fprintf(stderr, "not to be opened\n");

  EXPECT_EQ(out.text(), "Could not open dir (/missing%n)\n");
  EXPECT_EQ(err_.text(), "off\nnot to be opened\n");
}

TEST_F(LogFiles, AreNeitherLinksNorAnythingElseThatIsPlanted) {
  writeFile(other_ / "kept", "keep");
  fs::create_symlink(other_ / "kept", mine_ / name_);
  ASSERT_EQ(ZAL_Log_SetDirectory(mine_.c_str()), 0);
  ZAL_Log_SetFileMaxBytes(1);

  zal_fprintf(stderr, "link\n");
  fs::remove(mine_ / name_);
  ASSERT_EQ(mkfifo((mine_ / name_).c_str(), 0600), 0);
  zal_fprintf(stderr, "pipe\n");

  EXPECT_EQ(err_.text(), "link\npipe\n");
  EXPECT_EQ(readFile(other_ / "kept"), "keep");
  EXPECT_EQ(namesIn(mine_), std::set{name_});
}

TEST_F(LogFiles, AreRotatedAboveTheMaximumAndTheOldestIsDropped) {
  const std::set<std::string> others = {name_ + ".b.log", name_ + ".b.log.20190101-00:00:00",
                                        "b.log.20190101-00:00:00"};
  for (const std::string& name : others) writeFile(mine_ / name, "of others");
  for (const char* year : {"2020", "2021"}) writeFile(mine_ / (name_ + "." + year + "0101-00:00:00"), "old");
  fs::create_directory(mine_ / (name_ + ".0"));
  ASSERT_EQ(ZAL_Log_SetDirectory(mine_.c_str()), 0);
  for (const int bytes : {100, 0, -5, INT_MAX}) ZAL_Log_SetFileMaxBytes(bytes);  // all but the first are ignored
  ZAL_Log_SetFileMaxFiles(0);

  zal_fprintf(stderr, "%0100d", 1);
  EXPECT_EQ(fs::file_size(mine_ / name_), 100U) << "a file of exactly the maximum stays";
  zal_fprintf(stderr, "2");

  std::set<std::string> names = namesIn(mine_);
  for (const std::string& name : others) EXPECT_EQ(names.erase(name), 1U) << name;
  const std::string dated = "\\*\\.log\\.20[0-9]{6}-[0-9]{2}:[0-9]{2}:[0-9]{2}";
  EXPECT_THAT(names, ::testing::ElementsAre(name_ + ".0", name_ + ".20210101-00:00:00", MatchesRegex(dated)));
  EXPECT_EQ(fs::file_size(mine_ / *names.rbegin()), 101U);
}

TEST_F(LogFiles, OfAnotherNameAreClosedOutWhateverTheirSize) {
  ASSERT_EQ(ZAL_Log_SetDirectory(other_.c_str()), 0);
  writeFile(other_ / "job.log", "x");
  writeFile(other_ / "idle.log", "");

  for (const char* name : {"job", "idle", static_cast<const char*>(nullptr)}) ZAL_Log_FileClose(name);

  EXPECT_THAT(namesIn(other_), ::testing::ElementsAre("idle.log", MatchesRegex("job\\.log\\.20.*")));
}

TEST_F(LogFiles, WarnAboutMoreThanAGigabyte) {
  ZAL_Log_SetFileMaxBytes(536870912);  // two of them are exactly a gigabyte
  EXPECT_EQ(err_.text(), "");
  ZAL_Log_SetFileMaxBytes(600000000);
  EXPECT_EQ(err_.text(),
            "WARNING: the combination of debug options bytes (600000000) and file count (2) exceeds a gigabyte\n");
}

TEST_F(LogFiles, KeepEveryPieceOfConcurrentCallers) {
  const auto sayMuch = [this] {
    for (int line = 0; line < 100; ++line) {
      ZAL_Log_SetDirectory(mine_.c_str());
      zal_fprintf(stderr, "%s\n", "a piece");
      ZAL_Log_SetLevel(ZAL_LOG_INFO);
      say(ZAL_LOG_DEBUG);
      ZAL_Log_CheckEnv();
    }
  };

  std::thread other{sayMuch};
  sayMuch();
  other.join();

  std::string expected;
  for (int line = 0; line < 200; ++line) expected += "a piece\n";
  EXPECT_EQ(readFile(mine_ / name_), expected);
}

}  // namespace
