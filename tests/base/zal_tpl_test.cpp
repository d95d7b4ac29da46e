// Formats, maps, packing and dumping. What reads images is tested in zal_tpl_load_test.cpp.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <thread>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::test {
namespace {

using testing::ElementsAre;
using namespace std::string_view_literals;

constexpr auto kExitStatus = 255;  // -1

/// Header and format of an image, in front of its data.
std::string imageOf(const std::string& format, char flags, const std::string& data) {
  const auto size = static_cast<char>(8 + format.size() + 1 + data.size());
  return "tpl" + std::string{flags} + std::string{size, '\0', '\0', '\0'} + format + '\0' + data;
}

/// Every test leaves the engine without a block.
class TplMap : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(hook_.blocks(), 0U); }

  EngineHook hook_;
};

TEST_F(TplMap, DumpsTheDocumentedImagesByteForByte) {
  Command command;
  const Map map = command.map();
  EXPECT_EQ(dump(map), bytes("tpl\0\x16\0\0\0A(iBBBBi)\0\0\0\0\0"));

  command = {5, {blobOf("svc\0"sv), blobOf("get\0"sv), blobOf("\0"sv), blobOf("{}")}, 7};
  tpl_pack(map.get(), 1);
  command = {3, {blobOf("svc\0"sv), blobOf("set\0"sv), blobOf("\0"sv), {&command, 0}}, 0};
  tpl_pack(map.get(), 1);

  EXPECT_EQ(dump(map), documentedImage());
}

TEST_F(TplMap, WritesEveryTypeAsDocumented) {
  std::int32_t i = -2;
  std::uint32_t u = 0x04030201;
  char c = 'x';
  double f = 1.0;
  std::int64_t I = -2;
  std::uint64_t U = 0x0807060504030201;
  std::int16_t j = -2;
  std::uint16_t v = 0x0201;
  const char* null = nullptr;
  const char* texts[] = {"", "ab"};
  tpl_blob blob = {&u, 3};
  tpl_blob empty = {&u, 0};
  std::int32_t three[] = {1, 2, 3};

  EXPECT_EQ(jot("iucj", &i, &u, &c, &j), imageOf("iucj", 0, bytes("\xfe\xff\xff\xff\1\2\3\4x\xfe\xff")));
  EXPECT_EQ(jot("fIUv", &f, &I, &U, &v), imageOf("fIUv", 0,
                                                 bytes("\0\0\0\0\0\0\xf0\x3f\xfe\xff\xff\xff\xff\xff\xff\xff"
                                                       "\1\2\3\4\5\6\7\10\1\2")));
  EXPECT_EQ(jot("ss#", &null, texts, 2), imageOf("ss#", 2, bytes("\2\0\0\0\0\0\0\0\1\0\0\0\3\0\0\0ab")));
  EXPECT_EQ(jot("BB", &blob, &empty), imageOf("BB", 0, bytes("\3\0\0\0\1\2\3\0\0\0\0")));
  EXPECT_EQ(jot("i#", three, 3), imageOf("i#", 0, bytes("\3\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0")));
  EXPECT_EQ(jot("c##########", &c, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1).size(), 8U + 12 + 40 + 1);
}

TEST_F(TplMap, FindsTheMembersOfStructuresWhereTheCompilerPutsThem) {
  struct {
    char c;
    std::int32_t i;
  } ci = {'a', 1};
  struct {
    char c;
    double f;
  } cf[2] = {{'a', 1.0}, {'b', 2.0}};
  struct {
    std::int32_t i;
    char c;
  } ic[2] = {{1, 'a'}, {2, 'b'}};
  struct {
    char c[3];
    std::uint16_t v;
    std::uint64_t U;
  } cvU = {{'a', 'b', 'c'}, 1, 2};

  EXPECT_EQ(jot("S(ci)", &ci), imageOf("S(ci)", 0, bytes("a\1\0\0\0")));
  EXPECT_EQ(jot("S(cf)#", cf, 2), imageOf("S(cf)#", 0,
                                          bytes("\2\0\0\0a\0\0\0\0\0\0\xf0\x3f"
                                                "b\0\0\0\0\0\0\0\x40")));
  EXPECT_EQ(jot("S(ic)#", ic, 2), imageOf("S(ic)#", 0, bytes("\2\0\0\0\1\0\0\0a\2\0\0\0b")));
  EXPECT_EQ(jot("S(c#vU)", &cvU, 3), imageOf("S(c#vU)", 0, bytes("\3\0\0\0abc\1\0\2\0\0\0\0\0\0\0")));

  const Map parent = mapOf("i", &ci.i);
  auto* base = reinterpret_cast<char*>(&ci.i);
  constexpr int kArray = 5;
  constexpr int kDouble = 7;
  EXPECT_EQ(calc_field_addr(parent.get(), kDouble, base, 1), base);
  EXPECT_EQ(calc_field_addr(parent.get(), kDouble, base, 2), base + 8);
  EXPECT_EQ(calc_field_addr(parent.get(), kArray, base, 2), base + 4);
}

TEST_F(TplMap, RepeatsStructuresInsideElementsAndComesBackToTheFirst) {
  struct Item {
    std::int16_t j;
    const char* s;
  } items[] = {{1, "a"}, {2, nullptr}, {3, "ccc"}};
  const Map map = mapOf("A(S(js)#)", items, 3);

  ASSERT_EQ(tpl_pack(map.get(), 1), 0);
  items[1].s = "bb";
  ASSERT_EQ(tpl_pack(map.get(), 1), 0);

  const std::string first = bytes("\1\0\2\0\0\0a\2\0\0\0\0\0\3\0\4\0\0\0ccc");
  const std::string second = bytes("\1\0\2\0\0\0a\2\0\3\0\0\0bb\3\0\4\0\0\0ccc");
  EXPECT_EQ(dump(map), imageOf("A(S(js)#)", 2, bytes("\3\0\0\0\2\0\0\0") + first + second));
  EXPECT_EQ(dump(map), dump(map));
}

TEST_F(TplMap, RejectsBadFormatsAndKeepsNothingOfThem) {
  std::int64_t variable = 0;
  struct {
    const char* format;
    const char* before;
  } const kRejected[] = {{"A#", ""},
                         {"B#", ""},
                         {"#i", ""},
                         {"A()", ""},
                         {"A(i", ""},
                         {"S(S(i))", ""},
                         {"$(i)", ""},
                         {"(i)", ""},
                         {"i)", ""},
                         {"Ai", ""},
                         {"SB", ""},
                         {"S(iA(i))", ""},
                         {"S(iB)", ""},
                         {"S(#i)", ""},
                         {"A(#i)", ""},
                         {"A(i)#", ""},
                         {"S(i$(c)#)", ""},
                         {"A(S)#", ""},
                         {"i(", ""},
                         {"S(i)s)", ""},
                         {"Q", "unsupported option Q\n"},
                         {"iA(r)", "unsupported option r\n"}};

  for (const auto& row : kRejected) {
    EXPECT_EQ(tpl_map(row.format, &variable, &variable), nullptr) << row.format;
    EXPECT_EQ(hook_.takeReports(), std::string{row.before} + "failed to parse " + row.format + "\n");
    EXPECT_EQ(hook_.blocks(), 0U) << row.format;
  }
  EXPECT_EQ(tpl_jot(TPL_VIA_MEM, nullptr, nullptr, "Q"), -1);
}

TEST_F(TplMap, RejectsCountsWhoseProductFitsNothing) {
  std::int64_t variable = 0;

  EXPECT_EQ(tpl_map("i##", &variable, 65536, 65536), nullptr);
  EXPECT_EQ(tpl_map("A(S(jc#)#)", &variable, 0x7fffffff, 2), nullptr) << "stride beyond an int32";
  EXPECT_EQ(hook_.takeReports(), "failed to parse i##\nfailed to parse A(S(jc#)#)\n");
}

TEST_F(TplMap, AllocatesAnImageOnceAndExactly) {
  const char* text = "text";
  tpl_blob blob = blobOf(text);
  const Map map = mapOf("A(sA(B))s", &text, &blob, &text);
  for (const int index : {0, 2, 1, 2, 2, 1, 1, 2}) ASSERT_EQ(tpl_pack(map.get(), index), 0);
  hook_.takeSizes();

  const std::string image = dump(map);

  EXPECT_EQ(image.size(), 8U + 10 + 4 + 3 * (4 + 4 + 4) + 3 * (4 + 4) + 4 + 4);
  EXPECT_THAT(hook_.takeSizes(), ElementsAre(image.size()));
}

TEST_F(TplMap, PacksTheRootAnewAndDropsALoadedImage) {
  const char* text = "one";
  std::int16_t j = 1;
  const Map map = mapOf("sA(j)", &text, &j);
  std::string image = jot("sA(j)", &text, &j);

  tpl_pack(map.get(), 0);
  text = "two";
  tpl_pack(map.get(), 0);
  EXPECT_EQ(dump(map), imageOf("sA(j)", 2, bytes("\4\0\0\0two\0\0\0\0")));

  tpl_pack(map.get(), 1);
  ASSERT_EQ(load(map, image), 0);
  EXPECT_EQ(dump(map), "");
  EXPECT_EQ(hook_.takeReports(), "error: tpl_dump called for a loaded tpl\n");
  tpl_pack(map.get(), 1);
  EXPECT_EQ(dump(map), imageOf("sA(j)", 2, bytes("\0\0\0\0\1\0\0\0\1\0"))) << "unpacked and older values are gone";
}

TEST_F(TplMap, ReportsBadIndexesAndModes) {
  std::int32_t i = 0;
  const Map map = mapOf("A(i)", &i);

  EXPECT_EQ(tpl_pack(map.get(), 2), -1);
  EXPECT_EQ(tpl_pack(map.get(), -1), -1);
  EXPECT_EQ(tpl_pack(nullptr, 0), -1);
  EXPECT_EQ(hook_.takeReports(),
            "invalid index 2 to tpl_pack\ninvalid index -1 to tpl_pack\ninvalid index 0 to tpl_pack\n");
  EXPECT_EQ(tpl_dump(map.get(), TPL_INTO_BUFFER), -1);
  EXPECT_EQ(hook_.takeReports(), "unsupported tpl_dump mode 4\n");
}

TEST_F(TplMap, DumpsIntoABufferThatIsLargeEnough) {
  std::int32_t i = 7;
  const Map map = mapOf("i", &i);
  tpl_pack(map.get(), 0);
  std::string buffer(15, '?');
  std::size_t size = 0;

  EXPECT_EQ(tpl_dump(map.get(), TPL_SIZE_QUERY, &size), 0);
  EXPECT_EQ(size, 14U);
  EXPECT_EQ(tpl_dump(map.get(), TPL_VIA_MEM | TPL_INTO_BUFFER, buffer.data(), std::size_t{13}), -1);
  EXPECT_EQ(hook_.takeReports(), "tpl_dump: buffer too small, need 14 bytes\n");
  EXPECT_EQ(buffer, std::string(15, '?'));
  EXPECT_EQ(tpl_dump(map.get(), TPL_VIA_MEM | TPL_INTO_BUFFER, buffer.data(), size), 0);
  EXPECT_EQ(buffer, dump(map) + '?');
}

TEST_F(TplMap, DumpsToAFile) {
  const TempDir directory;
  const std::string path = directory.file("image");
  const std::string missing = directory.file("missing/image");
  std::string text(10000, 'x');
  const char* address = text.c_str();
  writeFile(path, std::string(20000, 'o'));
  umask(0);

  EXPECT_EQ(tpl_jot(TPL_VIA_FILE, path.c_str(), "s", &address), 0);
  EXPECT_EQ(readFile(path), jot("s", &address));
  EXPECT_EQ(tpl_jot(TPL_VIA_FILE, directory.file("new").c_str(), "s", &address), 0);
  struct stat status {};
  ASSERT_EQ(stat(directory.file("new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0664U);
  EXPECT_EQ(tpl_jot(TPL_VIA_FILE, missing.c_str(), "s", &address), -1);
  EXPECT_EQ(hook_.takeReports(), "Couldn't open file " + missing + ": No such file or directory\n");
}

TEST_F(TplMap, TakesBackWhatAFullFileGot) {
  const TempDir directory;
  const std::string path = directory.file("image");
  writeFile(path, "before");
  std::string text(10000, 'x');
  const char* address = text.c_str();
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {4096, RLIM_INFINITY};
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);

  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(lseek(descriptor, 0, SEEK_END), 6);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const int toDescriptor = tpl_jot(TPL_VIA_FD, descriptor, "s", &address);
  const int toFile = tpl_jot(TPL_VIA_FILE, directory.file("new").c_str(), "s", &address);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);

  EXPECT_EQ(toDescriptor, -1);
  EXPECT_EQ(toFile, -1);
  EXPECT_EQ(hook_.takeReports(), "error writing to fd " + std::to_string(descriptor) +
                                     ": File too large\nftruncate failed: File too large\n");
  EXPECT_EQ(readFile(path), "before");
  EXPECT_EQ(lseek(descriptor, 0, SEEK_CUR), 6);
  close(descriptor);
}

TEST_F(TplMap, WaitsForADescriptorThatIsFull) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  std::string text(300000, 'x');
  const char* address = text.c_str();
  std::string got;

  std::thread reader{[&] {
    fcntl(ends[0], F_SETFL, 0);
    char block[4096];
    for (ssize_t count = 0; (count = read(ends[0], block, sizeof block)) > 0;) {
      got.append(block, static_cast<std::size_t>(count));
    }
  }};
  const int result = tpl_jot(TPL_VIA_FD, ends[1], "s", &address);
  close(ends[1]);
  reader.join();
  close(ends[0]);

  EXPECT_EQ(result, 0);
  EXPECT_EQ(got, jot("s", &address));
  EXPECT_EQ(tpl_jot(TPL_VIA_FD, -1, "s", &address), -1);
  EXPECT_EQ(hook_.takeReports(), "error writing to fd -1: Bad file descriptor\n");
}

ZAL_PRINTF_LIKE(1, 2) void printAndReturn(const char* format, ...) {
  std::fputs(format, stderr);
}

TEST(TplFatalDeath, EndsTheProcessWithAMessage) {
  std::int64_t variable = 0;

  EXPECT_EXIT(tpl_map("i#", &variable, 0), testing::ExitedWithCode(kExitStatus), "non-positive iteration count 0\n");
  EXPECT_EXIT(tpl_map("c###########", &variable, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1), testing::ExitedWithCode(kExitStatus),
              "contiguous # exceeds hardcoded limit\n");
  EXPECT_EXIT(tpl_jot(TPL_INTO_BUFFER), testing::ExitedWithCode(kExitStatus), "invalid tpl_jot mode\n");
  EXPECT_EXIT(tpl_dump(nullptr, TPL_SIZE_QUERY, nullptr), testing::ExitedWithCode(kExitStatus),
              "internal error: tpl_ser_osz on non-root node\n");
  const auto overflow = [] { tpl_hook.fatal_fn("%s", (std::string(99, 'a') + "b").c_str()); };
  EXPECT_EXIT(overflow(), testing::ExitedWithCode(kExitStatus), "^" + std::string(99, 'a') + "$");
}

TEST(TplFatalDeath, StopsBehindAHookThatReturns) {
  const auto mapWithoutMemory = [] {
    tpl_hook.alloc_fn = [](std::size_t) -> void* { return nullptr; };
    tpl_hook.fatal_fn = printAndReturn;
    tpl_map("");
  };

  EXPECT_EXIT(mapWithoutMemory(), testing::KilledBySignal(SIGABRT), "out of memory\n");
}

}  // namespace
}  // namespace zal::test
