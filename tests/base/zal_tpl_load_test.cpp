// Loading, unpacking, gathering and peeking: images that this library wrote, images written by hand, and damaged ones.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <random>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::test {
namespace {

using testing::ElementsAre;

struct Pair {
  std::int16_t j;
  const char* s;
};
struct Outer {
  char c;
  std::int32_t i;
  const char* s;
  double f;
  std::int16_t j;
  std::uint64_t U;
};

/// The variables that the formats below are mapped to.
struct Variables {
  std::int32_t i[4];
  std::uint32_t u;
  char c[4];
  double f;
  std::int64_t I;
  std::uint64_t U;
  std::int16_t j;
  std::uint16_t v;
  const char* s[3];
  tpl_blob B[4];
  Outer outer;
  Pair pairs[4];
  Pair more[2];
};

struct Format {
  const char* text;
  std::vector<std::size_t> counts;
  std::vector<int> parents;  ///< of the arrays 1, 2, ...: the array that each lies in, 0 for none
  Map (*map)(Variables&);
};

const Format kFormats[] = {
    {"iucfIUjvsB",
     {},
     {},
     [](Variables& v) { return mapOf("iucfIUjvsB", v.i, &v.u, v.c, &v.f, &v.I, &v.U, &v.j, &v.v, v.s, v.B); }},
    {"i#s#c##", {3, 2, 2, 2}, {}, [](Variables& v) { return mapOf("i#s#c##", v.i, 3, v.s, 2, v.c, 2, 2); }},
    {"S(ci$(sfj)U)v", {}, {}, [](Variables& v) { return mapOf("S(ci$(sfj)U)v", &v.outer, &v.v); }},
    {"A(iBBBBi)",
     {},
     {0},
     [](Variables& v) { return mapOf("A(iBBBBi)", v.i, &v.B[0], &v.B[1], &v.B[2], &v.B[3], &v.i[1]); }},
    {"uA(sA(jA(B)c)f)A(v)",
     {},
     {0, 1, 2, 0},
     [](Variables& v) { return mapOf("uA(sA(jA(B)c)f)A(v)", &v.u, v.s, &v.j, v.B, v.c, &v.f, &v.v); }},
    {"S(js)##A(S(js)#uA(I))",
     {2, 2, 2},
     {0, 1},
     [](Variables& v) { return mapOf("S(js)##A(S(js)#uA(I))", v.pairs, 2, 2, v.more, 2, &v.u, &v.I); }},
    {"A(A(A(i#)))", {2}, {0, 1, 2}, [](Variables& v) { return mapOf("A(A(A(i#)))", v.i, 2); }},
};

/// Writes images of random values by the documented layout, without the library and in either byte order.
class ImageWriter {
 public:
  ImageWriter(const Format& format, std::mt19937& random) : format_{format}, text_{format.text}, random_{random} {
    for (const std::size_t count : format.counts) number(count);
    items(0, text_.size());
  }

  [[nodiscard]] std::string image(bool bigEndian) const {
    std::string data;
    for (const Value& value : values_) data += value.hasOrder ? ordered(value.bytes, bigEndian) : value.bytes;
    const bool hasTexts = text_.find('s') != std::string_view::npos;
    const auto flags = static_cast<char>((bigEndian ? 1 : 0) | (hasTexts ? 2 : 0));
    const auto size = little(8 + text_.size() + 1 + data.size());
    return "tpl" + std::string{flags} + ordered(size, bigEndian) + std::string{text_} + '\0' + data;
  }

 private:
  struct Value {
    std::string bytes;
    bool hasOrder;
  };

  static std::string little(std::size_t number) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(number >> shift);
    return bytes;
  }
  static std::string ordered(std::string value, bool bigEndian) {
    if (bigEndian) std::reverse(value.begin(), value.end());
    return value;
  }
  std::size_t below(unsigned limit) { return random_() % limit; }
  void number(std::size_t number) { values_.push_back({little(number), true}); }
  void text(std::size_t size) { values_.push_back({std::string(size, static_cast<char>('a' + below(26))), false}); }

  void value(char type) {
    static const std::string kTypes = "cjviufIU";
    static constexpr std::size_t kSizes[] = {1, 2, 2, 4, 4, 8, 8, 8};
    if (type == 's') {
      const std::size_t field = below(5);
      number(field);
      text(field == 0 ? 0 : field - 1);
    } else if (type == 'B') {
      const std::size_t size = below(4);
      number(size);
      text(size);
    } else {
      std::string bytes(kSizes[kTypes.find(type)], '\0');
      for (char& byte : bytes) byte = static_cast<char>('A' + below(26));
      values_.push_back({bytes, true});
    }
  }

  void items(std::size_t from, std::size_t to) {
    for (std::size_t at = from; at < to;) {
      const char type = text_[at];
      const bool isGroup = type == 'A' || type == 'S' || type == '$';
      const std::size_t last = isGroup ? closing(at + 1) : at;
      std::size_t times = 1;
      std::size_t end = last + 1;
      for (; end < to && text_[end] == '#'; ++end) times *= countAt(end);
      if (type == 'A') number(times = below(4));
      for (; times > 0; --times) isGroup ? items(at + 2, last) : value(type);
      at = end;
    }
  }
  [[nodiscard]] std::size_t closing(std::size_t at) const {
    for (int depth = 0;; ++at) {
      depth += text_[at] == '(' ? 1 : text_[at] == ')' ? -1 : 0;
      if (depth == 0) return at;
    }
  }
  [[nodiscard]] std::size_t countAt(std::size_t at) const {
    return format_
        .counts[static_cast<std::size_t>(std::count(text_.begin(), text_.begin() + static_cast<int>(at), '#'))];
  }

  const Format& format_;
  std::string_view text_;
  std::mt19937& random_;
  std::vector<Value> values_;
};

class TplLoad : public testing::Test {
 protected:
  /// Unpacks everything of an image and packs it again; the new image, or nothing when the image is rejected.
  static std::string transcode(const Format& format, const std::string& image, int flags = 0) {
    std::string result;
    {
      const std::vector<char> exact{image.begin(), image.end()};  // so that a sanitizer sees a read behind the end
      Variables variables{};
      const Map source = format.map(variables);
      const Map sink = format.map(variables);
      void* address = const_cast<char*>(exact.data());
      if (tpl_load(source.get(), TPL_VIA_MEM | flags, address, exact.size()) == 0) {
        EXPECT_EQ(tpl_unpack(source.get(), 0), 1);
        tpl_pack(sink.get(), 0);
        copyArrays(format, *source, *sink, 0);
        result = dump(sink);
      }
    }
    EngineHook::freeBlocks();
    return result;
  }
  static void copyArrays(const Format& format, tpl_map_node& source, tpl_map_node& sink, int parent) {
    for (int index = 1; index <= static_cast<int>(format.parents.size()); ++index) {
      if (format.parents[static_cast<std::size_t>(index) - 1] != parent) continue;
      for (int left = tpl_Alen(&source, index); left > 0; --left) {
        ASSERT_EQ(tpl_unpack(&source, index), left);
        copyArrays(format, source, sink, index);
        tpl_pack(&sink, index);
      }
      ASSERT_EQ(tpl_unpack(&source, index), 0);
    }
  }

  EngineHook hook_;
};

TEST_F(TplLoad, ReadsImagesOfBothByteOrdersAndWritesTheSameAgain) {
  std::mt19937 random{1};
  for (const Format& format : kFormats) {
    for (int round = 0; round < 50; ++round) {
      const ImageWriter writer{format, random};
      const std::string image = writer.image(false);

      ASSERT_EQ(transcode(format, image), image) << format.text;
      ASSERT_EQ(transcode(format, writer.image(true)), image) << format.text;
      ASSERT_EQ(transcode(format, image + "more", TPL_ALLOW_EXCESS), image) << format.text;
    }
  }
  EXPECT_EQ(hook_.takeReports(), "");
}

TEST_F(TplLoad, SurvivesDamagedImages) {
  std::mt19937 random{2};
  const auto ignore = [](void*, std::size_t, void*) { return 0; };
  for (const Format& format : kFormats) {
    const ImageWriter writer{format, random};
    for (const bool bigEndian : {false, true}) {
      const std::string image = writer.image(bigEndian);
      for (std::size_t at = 0; at < image.size(); ++at) {
        ASSERT_EQ(transcode(format, image.substr(0, at)), "");
        ASSERT_EQ(transcode(format, image.substr(0, at), TPL_ALLOW_EXCESS), "") << format.text << " cut at " << at;
        for (const int mask : {0x01, 0x80, 0xff}) {
          std::string damaged = image;
          damaged[at] = static_cast<char>(damaged[at] ^ mask);
          const std::string accepted = transcode(format, damaged, TPL_ALLOW_EXCESS);
          if (!accepted.empty()) {
            ASSERT_EQ(transcode(format, accepted), accepted) << format.text << " at " << at;
          }

          std::uint32_t total = 0;
          std::uint32_t* counts = nullptr;
          tpl_peek(TPL_VIA_MEM | TPL_FXLENS, damaged.data(), damaged.size(), &total, &counts);
          std::int32_t first = 0;
          tpl_peek(TPL_VIA_MEM | TPL_DATAPEEK, damaged.data(), damaged.size(), "i", &first);
          tpl_gather_state* state = nullptr;
          tpl_gather(TPL_GATHER_FROM_MEM, damaged.data(), damaged.size(), &state, +ignore, nullptr);
          hook_.freeBlocks();
        }
      }
    }
  }
}

TEST_F(TplLoad, UnpacksTheDocumentedImage) {
  std::string image = Command::image();
  Command command;
  const Map map = command.map();
  std::string names;

  ASSERT_EQ(load(map, image), 0);
  EXPECT_EQ(tpl_Alen(map.get(), 1), 2);
  for (const int left : {2, 1}) {
    ASSERT_EQ(tpl_unpack(map.get(), 1), left);
    names += static_cast<const char*>(command.name.address);
  }
  EXPECT_EQ(names, "getset");
  EXPECT_EQ(command.payload.address, nullptr);
  EXPECT_EQ(command.payload.length, 0U);
  EXPECT_EQ(tpl_unpack(map.get(), 1), 0);

  EXPECT_EQ(tpl_unpack(map.get(), 0), 1) << "sets the array back";
  EXPECT_EQ(tpl_Alen(map.get(), 1), 2);
}

TEST_F(TplLoad, TellsNullTextsFromEmptyOnesUnlessTheImageIsOld) {
  std::string image = bytes("tpl\2\x13\0\0\0ss\0\0\0\0\0\1\0\0\0");
  const char* texts[2] = {"", nullptr};
  const Map map = mapOf("ss", &texts[0], &texts[1]);

  ASSERT_EQ(load(map, image), 0);
  ASSERT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_EQ(texts[0], nullptr);
  EXPECT_STREQ(texts[1], "");

  std::string old = bytes("tpl\0\x15\0\0\0ss\0\0\0\0\0\2\0\0\0ab");
  ASSERT_EQ(load(map, old), 0);
  ASSERT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_STREQ(texts[0], "");
  EXPECT_STREQ(texts[1], "ab");

  std::string endless = bytes("tpl\0\x13\0\0\0ss\0\0\0\0\0\xff\xff\xff\xff");
  EXPECT_EQ(load(map, endless), -1);
}

TEST_F(TplLoad, UnpacksWhatHasJustBeenPacked) {
  std::int16_t j = 5;
  const Map map = mapOf("A(j)", &j);
  tpl_pack(map.get(), 1);
  j = 0;

  EXPECT_EQ(tpl_unpack(map.get(), 1), 1);
  EXPECT_EQ(j, 5);
}

TEST_F(TplLoad, SaysWhyAnImageIsRejected) {
  std::int32_t i = 0;
  std::int32_t more[4] = {};
  const std::string image = jot("i", &i);
  const std::string three = jot("i#", more, 3);
  const Map single = mapOf("i", &i);
  const Map four = mapOf("i#", more, 4);
  const auto patched = [&](std::size_t at, char byte) {
    std::string copy = image;
    copy[at] = byte;
    return copy;
  };
  const struct {
    const Map& map;
    std::string image;
    const char* inMemory;
    const char* inFile;  // behind the path
  } kRows[] = {
      {single, "tpl", "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, patched(0, 'T'), "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, patched(3, 4), "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, patched(4, 15), "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, patched(8, 'x'), "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, image + '\0', "not a valid tpl file\n", ": not a valid tpl file\n"},
      {single, patched(8, 'u'), "format signature mismatch\n", ": format signature mismatch\n"},
      {four, three, "not a valid tpl file\n", ": array lengths mismatch\n"},
  };
  const TempDir directory;
  const std::string path = directory.file("image");

  for (const auto& row : kRows) {
    std::string copy = row.image;
    writeFile(path, copy);
    EXPECT_EQ(load(row.map, copy, TPL_OWN_IMAGE), -1) << "and the image is not freed";
    EXPECT_EQ(hook_.takeReports(), row.inMemory);
    EXPECT_EQ(tpl_load(row.map.get(), TPL_VIA_FILE, path.c_str()), -1);
    EXPECT_EQ(hook_.takeReports(), path + row.inFile);
    EXPECT_EQ(tpl_unpack(row.map.get(), 0), -1);
  }
  EXPECT_EQ(tpl_load(single.get(), TPL_ALLOW_EXCESS), -1);
  EXPECT_EQ(tpl_load(nullptr, TPL_VIA_FD, 0), -1);
  EXPECT_EQ(hook_.takeReports(), "unsupported tpl_load mode 8\nerror: tpl_load to non-root node\n");
}

TEST_F(TplLoad, NeitherHangsNorCountsBelowZeroWhenElementsTakeNoBytes) {
  const Map map = mapOf("A");
  std::string image = bytes("tpl\0\x0e\0\0\0A\0\xff\xff\xff\xff");

  ASSERT_EQ(load(map, image), 0);
  EXPECT_EQ(tpl_Alen(map.get(), 1), INT_MAX);
  EXPECT_EQ(tpl_unpack(map.get(), 1), INT_MAX);
}

TEST_F(TplLoad, LoadsFromFilesDescriptorsAndOwnedMemory) {
  std::uint32_t u = 7;
  const std::string image = jot("u", &u);
  const TempDir directory;
  const std::string path = directory.file("image");
  writeFile(path, image);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], image.data(), image.size()), static_cast<ssize_t>(image.size()));
  void* owned = tpl_hook.alloc_fn(image.size());
  std::copy(image.begin(), image.end(), static_cast<char*>(owned));
  {
    const Map map = mapOf("u", &u);
    const auto unpacked = [&] {
      u = 0;
      return tpl_unpack(map.get(), 0) == 1 ? u : 0;
    };
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, path.c_str()), 0);
    EXPECT_EQ(unpacked(), 7U);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_MEM | TPL_OWN_IMAGE, owned, image.size()), 0);
    EXPECT_EQ(unpacked(), 7U);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FD, ends[0]), 0);
    EXPECT_EQ(unpacked(), 7U);
    close(ends[1]);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FD, ends[0]), -1);
    const std::string missing = directory.file("missing");
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, missing.c_str()), -1);
    EXPECT_EQ(hook_.takeReports(), "Couldn't open file " + missing +
                                       ": No such file or directory\ntpl_load failed for file " + missing + "\n");
  }
  close(ends[0]);
  EXPECT_EQ(hook_.blocks(), 0U);
}

TEST_F(TplLoad, ReportsBadIndexes) {
  std::int32_t i = 0;
  const Map map = mapOf("A(i)", &i);

  EXPECT_EQ(tpl_unpack(map.get(), 2), -1);
  EXPECT_EQ(tpl_Alen(map.get(), 2), -1);
  EXPECT_EQ(tpl_Alen(nullptr, 1), -1);
  EXPECT_EQ(tpl_Alen(map.get(), 0), -1);
  EXPECT_EQ(hook_.takeReports(),
            "invalid index 2 to tpl_unpack\ninvalid index 2 to tpl_unpack\ninvalid index 1 to tpl_unpack\n");
}

/// One byte stream and what came out of it.
class TplGather : public testing::Test {
 protected:
  ~TplGather() override {
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
  static std::string imageOf(std::string text) {
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
  ~TplGatherDescriptor() override {
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
  put(first_ + second_);
  EXPECT_EQ(gatherOne(), 1);
  EXPECT_EQ(gatherOne(), 1);
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
  const std::string image = Command::image();
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
