// Cutting byte streams into images, and looking into an image without a map.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <thread>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::test {
namespace {

using testing::ElementsAre;

/// One byte stream and what came out of it.
class TplGather : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(state_, nullptr);
    EXPECT_EQ(hook_.blocks(), 0U);
  }

  int feed(std::string_view part) {
    return tpl_gather(TPL_GATHER_FROM_MEM, part.data(), part.size(), &state_, &TplGather::take, this);
  }
  static int take(void* image, std::size_t size, void* data) {
    auto* self = static_cast<TplGather*>(data);
    EXPECT_EQ(self->state_, nullptr);
    self->images_.emplace_back(static_cast<const char*>(image), size);
    self->addresses_.push_back(image);
    return self->answer_;
  }
  static std::string imageOf(const std::string& text) {
    const char* address = text.c_str();
    return jot("s", &address);
  }

  EngineHook hook_;
  const std::string first_ = imageOf("one");
  const std::string second_ = imageOf(std::string(40, '2'));
  const std::string stream_ = first_ + second_ + first_;
  tpl_gather_state* state_ = nullptr;
  std::vector<std::string> images_;
  std::vector<const void*> addresses_;
  int answer_ = 0;
};

TEST_F(TplGather, DeliversEachImageOnceAndWholeWhereverTheStreamIsCut) {
  for (std::size_t cut = 0; cut <= stream_.size(); ++cut) {
    const std::string_view stream{stream_};
    ASSERT_EQ(feed(stream.substr(0, cut)), 1);
    std::size_t expected = cut == stream.size() ? 3 : 2;
    if (cut < first_.size() + second_.size()) expected = cut < first_.size() ? 0 : 1;
    ASSERT_EQ(images_.size(), expected) << "no sooner and no later than its last byte";
    ASSERT_EQ(feed(stream.substr(cut)), 1);
    ASSERT_THAT(images_, ElementsAre(first_, second_, first_)) << "cut at " << cut;
    ASSERT_EQ(state_, nullptr);
    images_.clear();
  }
  for (const char& byte : stream_) ASSERT_EQ(feed({&byte, 1}), 1);
  EXPECT_THAT(images_, ElementsAre(first_, second_, first_));
}

TEST_F(TplGather, DeliversWholeImagesFromTheCallersOwnBuffer) {
  hook_.takeSizes();
  EXPECT_EQ(feed(stream_), 1);

  EXPECT_THAT(addresses_, ElementsAre(stream_.data(), stream_.data() + first_.size(),
                                      stream_.data() + first_.size() + second_.size()));
  EXPECT_THAT(hook_.takeSizes(), ElementsAre());
}

TEST_F(TplGather, DropsAStreamThatIsBrokenTooLongOrUnwanted) {
  const std::string short8 = bytes("tpl\0\x08\0\0\0\0");

  EXPECT_EQ(feed(first_ + "tpX" + first_), -3);
  EXPECT_EQ(images_.size(), 1U);
  EXPECT_EQ(feed(short8), -3);
  EXPECT_EQ(feed(first_.substr(0, 12)), 1);
  EXPECT_EQ(feed(first_.substr(12) + "no image"), 1) << "8 bytes may still become a header";
  EXPECT_EQ(feed("!"), -3);
  EXPECT_EQ(hook_.takeReports(), "tpl prefix invalid\ntpl prefix invalid\ntpl prefix invalid\n");

  tpl_hook.gather_limit = 50;
  EXPECT_EQ(feed(second_.substr(0, 30)), 1);
  EXPECT_EQ(feed(second_.substr(30)), -2);
  EXPECT_EQ(hook_.takeReports(), "tpl exceeds max length 50\n");
  tpl_hook.gather_limit = 0;

  answer_ = -1;
  EXPECT_EQ(feed(first_.substr(0, 12)), 1);
  EXPECT_EQ(feed(first_.substr(12) + second_), -4);
  EXPECT_EQ(hook_.takeReports(), "tpl_mem_gather aborted by app callback\n");
}

/// A pipe whose writing end is ours.
class TplGatherDescriptor : public TplGather {
 protected:
  void SetUp() override { ASSERT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
  void TearDown() override {
    TplGather::TearDown();
    close(ends_[0]);
    hangUp();
  }

  void put(const std::string& part) {
    ASSERT_EQ(write(ends_[1], part.data(), part.size()), static_cast<ssize_t>(part.size()));
  }
  void hangUp() { close(std::exchange(ends_[1], -1)); }
  int gather() {
    fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    return tpl_gather(TPL_GATHER_FD_NOWAIT, ends_[0], &state_, &TplGather::take, this);
  }
  int gatherOne() {
    void* image = nullptr;
    std::size_t size = 0;
    const int result = tpl_gather(TPL_GATHER_FD_BLOCKING, ends_[0], &image, &size);
    if (result == 1) images_.push_back(takeImage(image, size));
    return result;
  }

  int ends_[2] = {-1, -1};
};

TEST_F(TplGatherDescriptor, TakesAllThereIsWithoutWaiting) {
  const std::string large = imageOf(std::string(20000, 'x'));

  EXPECT_EQ(gather(), 1);
  put(first_ + large + second_.substr(0, 11));
  EXPECT_EQ(gather(), 1);
  EXPECT_THAT(images_, ElementsAre(first_, large));
  put(second_.substr(11) + first_.substr(0, 3));
  EXPECT_EQ(gather(), 1);
  EXPECT_EQ(images_.back(), second_);
  hangUp();
  EXPECT_EQ(gather(), 0);
  EXPECT_EQ(hook_.takeReports(), "tpl_gather: partial tpl image precedes EOF\n");
}

TEST_F(TplGatherDescriptor, EndsOnWhatIsNoImageOnAnAbortAndOnErrors) {
  put("no image at all");
  EXPECT_EQ(gather(), -3);
  put(bytes("tpl\0\x08\0\0\0\0"));
  EXPECT_EQ(gather(), -3);
  answer_ = -1;
  put(first_);
  EXPECT_EQ(gather(), -4);
  close(std::exchange(ends_[0], -1));
  EXPECT_EQ(gather(), -1);
  EXPECT_EQ(gatherOne(), -1);
  EXPECT_EQ(hook_.takeReports(),
            "tpl prefix invalid\ntpl prefix invalid\ntpl_fd_gather aborted by app callback\n"
            "tpl_gather failed: Bad file descriptor\ntpl_gather_fd_blocking failed: Bad file descriptor\n");
}

TEST_F(TplGatherDescriptor, WaitsForOneImage) {
  fcntl(ends_[0], F_SETFL, O_NONBLOCK);
  std::thread writer{[&] {
    for (const char byte : first_ + second_) put({byte});
  }};
  EXPECT_EQ(gatherOne(), 1);
  EXPECT_EQ(gatherOne(), 1);
  writer.join();
  EXPECT_THAT(images_, ElementsAre(first_, second_));

  put("no image");
  EXPECT_EQ(gatherOne(), -1);
  put(bytes("tpl\0\x08\0\0\0"));
  EXPECT_EQ(gatherOne(), -1);
  tpl_hook.gather_limit = 50;
  put(second_.substr(0, 8));
  EXPECT_EQ(gatherOne(), -2);
  EXPECT_EQ(hook_.takeReports(),
            "tpl_gather_fd_blocking: non-tpl input\ntpl_gather_fd_blocking: non-tpl input\n"
            "tpl exceeds max length 50\n");
  put(first_.substr(0, 9));
  hangUp();
  EXPECT_EQ(gatherOne(), 0) << "the end comes inside the image";
}

class TplPeek : public testing::Test {
 protected:
  template <class... Arguments>
  std::string peek(const std::string& image, int flags, Arguments... arguments) {
    return taken(tpl_peek(TPL_VIA_MEM | flags, image.data(), image.size(), arguments...));
  }
  static std::string taken(char* format) {
    if (format == nullptr) return "(null)";
    std::string text = format;
    tpl_hook.free_fn(format);
    return text;
  }

  EngineHook hook_;
};

TEST_F(TplPeek, TellsFormatCountsAndLeadingValues) {
  const std::string image = documentedImage();
  const TempDir directory;
  const std::string path = directory.file("image");
  writeFile(path, image);
  const std::string twin = bytes("tpl\3\0\0\0\x1dS(is)#\0\0\0\0\1\1\2\3\4\0\0\0\3ab");
  std::uint32_t total = 0;
  std::uint32_t* counts = nullptr;
  std::int32_t i = 0;
  char* s = nullptr;

  EXPECT_EQ(peek(image, 0), "A(iBBBBi)");
  EXPECT_EQ(taken(tpl_peek(TPL_VIA_FILE, path.c_str())), "A(iBBBBi)");
  EXPECT_EQ(peek(twin, TPL_FXLENS, &total, &counts), "S(is)#");
  ASSERT_EQ(total, 1U);
  EXPECT_EQ(counts[0], 1U);
  EXPECT_EQ(peek(twin, TPL_DATAPEEK, "is", &i, &s), "S(is)#");
  EXPECT_EQ(i, 0x01020304);
  EXPECT_STREQ(s, "ab");
  EXPECT_EQ(peek(image, TPL_FXLENS, &total, &counts), "A(iBBBBi)");
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(counts, nullptr);
}

TEST_F(TplPeek, GivesNothingOfAnImageThatIsNone) {
  std::uint32_t total = 1;
  std::uint32_t* counts = &total;
  char* text = nullptr;
  std::int32_t i = 0;
  const std::string shortImage = bytes("tpl\2\x16\0\0\0si\0\2\0\0\0a\0\0\0\0");  // of the i, one byte is missing

  for (const std::string& image : {std::string{"tpl"}, bytes("tpL\0\x0a\0\0\0i\0"), bytes("tpl\0\x0b\0\0\0i\0"),
                                   bytes("tpl\0\x0a\0\0\0ii"), bytes("tpl\0\x0d\0\0\0i#\0\0\0")}) {
    EXPECT_EQ(peek(image, 0), "(null)");
  }
  EXPECT_EQ(hook_.takeReports(), "");
  EXPECT_EQ(tpl_peek(TPL_VIA_FILE | TPL_FXLENS, "/missing/image", &total, &counts), nullptr);
  EXPECT_EQ(counts, nullptr);
  EXPECT_EQ(hook_.takeReports(),
            "Couldn't open file /missing/image: No such file or directory\ntpl_peek failed for file /missing/image\n");

  std::string exact = shortImage;
  exact[4] = static_cast<char>(exact.size());
  EXPECT_EQ(peek(exact, TPL_DATAPEEK, "si", &text, &i), "si");
  tpl_hook.free_fn(std::exchange(text, nullptr));
  exact.pop_back();
  exact[4] = static_cast<char>(exact.size());
  EXPECT_EQ(peek(exact, TPL_DATAPEEK, "si", &text, &i), "(null)");
  EXPECT_EQ(text, nullptr) << "all values or none";
  EXPECT_EQ(peek(exact, TPL_DATAPEEK, "i", &i), "(null)");
  EXPECT_EQ(peek(exact, TPL_DATAPEEK, "B", &i), "(null)");
  EXPECT_EQ(tpl_peek(TPL_VIA_MEM | TPL_FXLENS | TPL_DATAPEEK), nullptr);
  EXPECT_EQ(tpl_peek(TPL_VIA_FD), nullptr);
  EXPECT_EQ(hook_.takeReports(),
            "tpl_peek: tpl has insufficient length\nTPL_DATAPEEK format mismatches tpl iamge\n"
            "invalid TPL_DATAPEEK format: B\nTPL_FXLENS and TPL_DATAPEEK mutually exclusive\n"
            "unsupported tpl_peek mode 16\n");
  EXPECT_EQ(hook_.blocks(), 0U);
}

TEST(TplGatherDeath, EndsTheProcessInAnUnknownMode) {
  EXPECT_EXIT(tpl_gather(4), testing::ExitedWithCode(255), "unsupported tpl_gather mode 4\n");
}

}  // namespace
}  // namespace zal::test
