// Formats, maps, packing and dumping. What reads images is tested in zal_tpl_load_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <thread>

#include "tests/base/tpl_fixture.hpp"

namespace zal::test {
namespace {

using namespace std::string_view_literals;

constexpr auto kExitStatus = 255;  // -1

using TplMap = EngineTest;

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

TEST_F(TplMap, FindsValuesWhereTheCompilerPutsThem) {
  std::int32_t three[] = {1, 2, 3};
  struct {
    double f;
    char c;
  } fc[2] = {{1.0, 'a'}, {2.0, 'b'}};
  struct {
    char c[3];
    std::uint16_t v;
    std::uint64_t U;
  } cvU = {{'a', 'b', 'c'}, 1, 2};

  EXPECT_EQ(jot("i#", three, 3), imageOf("i#", 0, bytes("\3\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0")));
  EXPECT_EQ(jot("i##########", three, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1).size(), 8U + 12 + 40 + 4);
  EXPECT_EQ(jot("S(fc)#", fc, 2), imageOf("S(fc)#", 0, bytes("\2\0\0\0\0\0\0\0\0\0\xf0?a\0\0\0\0\0\0\0@b")));
  EXPECT_EQ(jot("S(c#vU)", &cvU, 3), imageOf("S(c#vU)", 0, bytes("\3\0\0\0abc\1\0\2\0\0\0\0\0\0\0")));
}

TEST_F(TplMap, RejectsBadFormatsAndKeepsNothingOfThem) {
  std::int64_t variable = 0;

  for (const std::string format : {"A#", "#i", "A()", "A(i", "S(S(i))", "$(i)", "i)", "Ai", "S(iA(i))", "S(iB)",
                                   "S(#i)", "A(i)#", "S(i$(c)#)", "A(S)#", "i(", "S(i)s)"}) {
    EXPECT_EQ(tpl_map(format.c_str(), &variable, &variable), nullptr) << format;
    EXPECT_EQ(hook_.takeReports(), "failed to parse " + format + "\n");
    EXPECT_EQ(hook_.blocks(), 0U) << format;
  }
  EXPECT_EQ(tpl_jot(TPL_VIA_MEM, nullptr, nullptr, "iA(r)", &variable), -1);
  EXPECT_EQ(hook_.takeReports(), "unsupported option r\nfailed to parse iA(r)\n");
  EXPECT_EQ(tpl_map(nullptr), nullptr);
  EXPECT_EQ(hook_.takeReports(), "failed to parse (null)\n");
  EXPECT_EQ(tpl_map("i##", &variable, 65536, 65536), nullptr);
  EXPECT_EQ(tpl_map("A(S(jc#)#)", &variable, 0x7fffffff, 2), nullptr) << "stride beyond an int32";
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

TEST_F(TplMap, ReportsBadIndexes) {
  std::int32_t i = 0;
  const Map map = mapOf("A(i)", &i);
  EXPECT_EQ(tpl_pack(map.get(), -1) + tpl_pack(nullptr, 0) + tpl_unpack(map.get(), 2), -3);
  EXPECT_EQ(tpl_Alen(map.get(), 0) + tpl_Alen(nullptr, 1), -2);
  EXPECT_EQ(hook_.takeReports(),
            "invalid index -1 to tpl_pack\ninvalid index 0 to tpl_pack\ninvalid index 2 to tpl_unpack\n"
            "invalid index 1 to tpl_unpack\n");
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

TEST_F(TplMap, WaitsForADescriptorThatIsFullAndSaysWhatCannotBeWritten) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  std::string text(300000, 'x');
  const char* address = text.c_str();
  std::string got;

  std::thread reader{[&] {
    fcntl(ends[0], F_SETFL, 0);
    char block[4096];
    for (ssize_t count = 0; (count = read(ends[0], block, sizeof block)) > 0;)
      got.append(block, static_cast<std::size_t>(count));
  }};
  const int result = tpl_jot(TPL_VIA_FD, ends[1], "s", &address);
  close(ends[1]);
  reader.join();
  close(ends[0]);

  EXPECT_EQ(result, 0);
  EXPECT_EQ(got, jot("s", &address));
  EXPECT_EQ(tpl_jot(TPL_VIA_FD, -1, "s", &address), -1);
  EXPECT_EQ(tpl_jot(TPL_VIA_FILE, "/dev/zero", "s", &address), -1) << "which cannot be extended";
  EXPECT_EQ(hook_.takeReports(), "error writing to fd -1: Bad file descriptor\nftruncate failed: Invalid argument\n");
}

ZAL_PRINTF_LIKE(1, 2) void printAndReturn(const char* format, ...) {
  std::fputs(format, stderr);
}

TEST(TplFatalDeath, EndsTheProcessWithAMessage) {
  std::int64_t variable = 0;

  EXPECT_EXIT(tpl_map("i#", &variable, 0), testing::ExitedWithCode(kExitStatus), "non-positive iteration count 0\n");
  EXPECT_EXIT(tpl_map("c###########", &variable, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1), testing::ExitedWithCode(kExitStatus),
              "contiguous # exceeds hardcoded limit\n");
  EXPECT_EXIT(tpl_jot(TPL_SIZE_QUERY, "i", &variable), testing::ExitedWithCode(kExitStatus), "invalid tpl_jot mode\n");
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
