// Cutting byte streams into images, and looking into an image without a map. That a stream may be cut anywhere, and how
// much memory it takes, is shown by fuzz_tpl_gather, fuzz_tpl_files and zal_bounds.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "tests/base/tpl_fixture.hpp"

namespace zal::test {
namespace {

/// One byte stream and what came out of it.
class TplGather : public EngineTest {
 protected:
  void TearDown() override {
    EXPECT_EQ(state_, nullptr);
    EngineTest::TearDown();
  }

  int feed(std::string_view part) {
    return tpl_gather(TPL_GATHER_FROM_MEM, part.data(), part.size(), &state_, &TplGather::take, this);
  }
  static int take(void* image, std::size_t size, void* data) {
    auto* self = static_cast<TplGather*>(data);
    EXPECT_EQ(self->state_, nullptr);
    self->images_.emplace_back(static_cast<const char*>(image), size);
    return self->answer_;
  }
  static std::string imageWith(const std::string& text) {
    const char* address = text.c_str();
    return jot("s", &address);
  }

  const std::string first_ = imageWith("one");
  const std::string second_ = imageWith(std::string(40, '2'));
  tpl_gather_state* state_ = nullptr;
  std::vector<std::string> images_;
  int answer_ = 0;
};

TEST_F(TplGather, DropsAStreamThatIsBrokenTooLongOrUnwanted) {
  EXPECT_EQ(feed(first_ + "tpX" + first_), -3);
  EXPECT_EQ(images_.size(), 1U);
  EXPECT_EQ(feed(bytes("tpl\0\x08\0\0\0\0")), -3);
  EXPECT_EQ(feed(first_.substr(0, 12)), 1);
  EXPECT_EQ(feed(first_.substr(12) + "no image"), 1) << "8 bytes may still become a header";
  EXPECT_EQ(feed("!"), -3);
  EXPECT_EQ(hook_.takeReports(), "tpl prefix invalid\ntpl prefix invalid\ntpl prefix invalid\n");

  tpl_hook.gather_limit = 50;
  EXPECT_EQ(feed(second_.substr(0, 30)), 1);
  EXPECT_EQ(feed(second_.substr(30)), -2);
  answer_ = -1;
  EXPECT_EQ(feed(first_.substr(0, 12)), 1);
  EXPECT_EQ(feed(first_.substr(12) + first_), -4);
  EXPECT_EQ(hook_.takeReports(), "tpl exceeds max length 50\ntpl_mem_gather aborted by app callback\n");
}

TEST_F(TplGather, WaitsForAnImageAtADescriptorAndSaysWhyThereIsNone) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  const auto put = [&](const std::string& part) {
    EXPECT_EQ(write(ends[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
  };
  const auto gatherAll = [&] { return tpl_gather(TPL_GATHER_FD_NOWAIT, ends[0], &state_, &TplGather::take, this); };
  const auto gatherOne = [&] {
    void* image = nullptr;
    std::size_t size = 0;
    const int result = tpl_gather(TPL_GATHER_FD_BLOCKING, ends[0], &image, &size);
    if (result == 1) images_.push_back(takeImage(image, size));
    return result;
  };

  std::thread writer{[&] {
    for (const char byte : first_) put({byte});
  }};
  EXPECT_EQ(gatherOne(), 1);
  writer.join();
  EXPECT_THAT(images_, testing::ElementsAre(first_));

  put("no image at all");
  EXPECT_EQ(gatherAll(), -3);
  put(bytes("tpl\0\x08\0\0\0"));
  EXPECT_EQ(gatherOne(), -1);
  tpl_hook.gather_limit = 50;
  put(second_.substr(0, 8));
  EXPECT_EQ(gatherOne(), -2);
  put(first_.substr(0, 3));
  EXPECT_EQ(gatherAll(), 1);
  close(ends[1]);
  EXPECT_EQ(gatherAll(), 0);
  EXPECT_EQ(hook_.takeReports(),
            "tpl prefix invalid\ntpl_gather_fd_blocking: non-tpl input\ntpl exceeds max length 50\n"
            "tpl_gather: partial tpl image precedes EOF\n");
  close(ends[0]);
}

class TplPeek : public EngineTest {
 protected:
  template <class... Arguments>
  std::string peek(const std::string& image, int flags, Arguments... arguments) {
    char* format = tpl_peek(TPL_VIA_MEM | flags, image.data(), image.size(), arguments...);
    const std::string text = format == nullptr ? "(null)" : format;
    tpl_hook.free_fn(format);
    return text;
  }
};

TEST_F(TplPeek, TellsFormatCountsAndLeadingValues) {
  const std::string image = imageOf("S(is)#", 3, bytes("\0\0\0\1\1\2\3\4\0\0\0\3ab"));
  std::uint32_t total = 0;
  std::uint32_t* counts = nullptr;
  std::int32_t i = 0;
  char* s = nullptr;

  EXPECT_EQ(peek(image, TPL_FXLENS, &total, &counts), "S(is)#");
  ASSERT_EQ(total, 1U);
  EXPECT_EQ(counts[0], 1U);
  tpl_hook.free_fn(counts);
  EXPECT_EQ(peek(image, TPL_DATAPEEK, "is", &i, &s), "S(is)#");
  EXPECT_EQ(i, 0x01020304);
  EXPECT_STREQ(s, "ab");
  tpl_hook.free_fn(s);
  EXPECT_EQ(peek(documentedImage(), TPL_FXLENS, &total, &counts), "A(iBBBBi)");
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(counts, nullptr);
}

TEST_F(TplPeek, GivesNothingOfAnImageThatIsNone) {
  char* text = nullptr;
  std::int32_t i = 0;
  const std::string shortImage = imageOf("si", 2, bytes("\2\0\0\0a\0\0\0"));  // of the i, one byte is missing

  for (const std::string& image : {std::string{"tpl"}, bytes("tpL\0\x0a\0\0\0i\0"), bytes("tpl\0\x0b\0\0\0i\0"),
                                   bytes("tpl\0\x0a\0\0\0ii"), bytes("tpl\0\x0d\0\0\0i#\0\0\0")})
    EXPECT_EQ(peek(image, 0), "(null)");
  EXPECT_EQ(tpl_peek(TPL_VIA_FILE, "/missing/image"), nullptr);
  EXPECT_EQ(peek(shortImage, TPL_DATAPEEK, "si", &text, &i), "(null)");
  EXPECT_EQ(text, nullptr) << "all values or none";
  EXPECT_EQ(peek(shortImage, TPL_DATAPEEK, "i", &i), "(null)");
  EXPECT_EQ(hook_.takeReports(),
            "Couldn't open file /missing/image: No such file or directory\ntpl_peek failed for file /missing/image\n"
            "tpl_peek: tpl has insufficient length\nTPL_DATAPEEK format mismatches tpl iamge\n");
}

}  // namespace
}  // namespace zal::test
