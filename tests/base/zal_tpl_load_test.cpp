// Loading and unpacking: images that this library wrote, images of a writer of our own, and damaged ones. Streams of
// images, and looks into single ones, are tested in zal_tpl_gather_test.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <random>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::test {
namespace {

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
  Map (*map)(Variables&);
  const char* text;
  std::vector<std::size_t> counts{};
  std::vector<int> parents{};  ///< of the arrays 1, 2, ...: the array that each lies in, 0 for none
};

const Format kFormats[] = {
    {[](Variables& v) { return mapOf("iucfIUjvsB", v.i, &v.u, v.c, &v.f, &v.I, &v.U, &v.j, &v.v, v.s, v.B); },
     "iucfIUjvsB"},
    {[](Variables& v) { return mapOf("i#s#c##", v.i, 3, v.s, 2, v.c, 2, 2); }, "i#s#c##", {3, 2, 2, 2}},
    {[](Variables& v) { return mapOf("S(ci$(sfj)U)v", &v.outer, &v.v); }, "S(ci$(sfj)U)v"},
    {[](Variables& v) { return mapOf("A(iBBs)", v.i, &v.B[0], &v.B[1], v.s); }, "A(iBBs)", {}, {0}},
    {[](Variables& v) { return mapOf("uA(sA(jA(B)c)f)A(v)", &v.u, v.s, &v.j, v.B, v.c, &v.f, &v.v); },
     "uA(sA(jA(B)c)f)A(v)",
     {},
     {0, 1, 2, 0}},
    {[](Variables& v) { return mapOf("S(js)##A(S(js)#uA(I))", v.pairs, 2, 2, v.more, 2, &v.u, &v.I); },
     "S(js)##A(S(js)#uA(I))",
     {2, 2, 2},
     {0, 1}},
    {[](Variables& v) { return mapOf("A(A(A(i#)))", v.i, 2); }, "A(A(A(i#)))", {2}, {0, 1, 2}},
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

  void value(char type) {
    static constexpr std::string_view kTypes = "cjviufIU";
    static constexpr std::size_t kSizes[] = {1, 2, 2, 4, 4, 8, 8, 8};
    if (type == 's' || type == 'B') {
      const std::size_t length = below(5);
      number(length);
      const std::size_t size = type == 's' && length != 0 ? length - 1 : length;
      values_.push_back({std::string(size, static_cast<char>('a' + below(26))), false});
    } else {
      values_.push_back({std::string(kSizes[kTypes.find(type)], static_cast<char>('A' + below(26))), true});
      values_.back().bytes.front() = 'z';
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
    const std::string_view before = text_.substr(0, at);
    return format_.counts[static_cast<std::size_t>(std::count(before.begin(), before.end(), '#'))];
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
  std::string image = documentedImage();
  Command command;
  const Map map = command.map();
  std::string names;

  ASSERT_EQ(load(map, image), 0);
  EXPECT_EQ(tpl_Alen(map.get(), 1), 2);
  for (const int left : {2, 1}) {
    ASSERT_EQ(tpl_unpack(map.get(), 1), left);
    names += static_cast<const char*>(command.blobs[1].address);
  }
  EXPECT_EQ(names, "getset");
  EXPECT_EQ(command.blobs[3].address, nullptr);
  EXPECT_EQ(command.blobs[3].length, 0U);
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
  const Map single = mapOf("i", &i);
  const Map four = mapOf("i#", more, 4);
  const auto patched = [&](std::size_t at, char byte) { return std::string{image}.replace(at, 1, 1, byte); };
  const std::string invalid = "not a valid tpl file\n";
  const std::string otherFormat = "format signature mismatch\n";
  const struct {
    const Map& map;
    std::string image;
    std::string inMemory;
    std::string inFile;  // behind the path
  } kRows[] = {
      {single, "tpl", invalid, invalid},
      {single, patched(0, 'T'), invalid, invalid},
      {single, patched(3, 4), invalid, invalid},
      {single, patched(4, 15), invalid, invalid},
      {single, patched(8, 'x'), invalid, invalid},
      {single, patched(4, 15) + '\0', invalid, invalid},
      {four, "tpl" + std::string{image, 3, 5} + "i#", invalid, invalid},
      {single, patched(8, 'u'), otherFormat, otherFormat},
      {four, jot("i#", more, 3), invalid, "array lengths mismatch\n"},
  };
  const TempDir directory;
  const std::string path = directory.file("image");

  for (const auto& row : kRows) {
    std::string copy = row.image;
    writeFile(path, copy);
    EXPECT_EQ(load(row.map, copy, TPL_OWN_IMAGE), -1) << "and the image is not freed";
    EXPECT_EQ(hook_.takeReports(), row.inMemory);
    EXPECT_EQ(tpl_load(row.map.get(), TPL_VIA_FILE, path.c_str()), -1);
    EXPECT_EQ(hook_.takeReports(), path + ": " + row.inFile);
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

auto openDescriptors() {
  return std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {});
}

TEST_F(TplLoad, LoadsFromFilesDescriptorsAndOwnedMemory) {
  const auto open = openDescriptors();
  std::uint32_t u = 7;
  const std::string image = jot("u", &u);
  const TempDir directory;
  const std::string path = directory.file("image");
  writeFile(path, image);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(tpl_jot(TPL_VIA_FD, ends[1], "u", &u), 0);
  void* owned = tpl_hook.alloc_fn(image.size());
  std::copy(image.begin(), image.end(), static_cast<char*>(owned));
  {
    const Map map = mapOf("u", &u);
    const auto unpacked = [&] {
      u = 0;
      return tpl_unpack(map.get(), 0) == 1 ? u : 0;
    };
    const Map other = mapOf("i", &u);
    EXPECT_EQ(tpl_load(other.get(), TPL_VIA_FILE, path.c_str()), -1);
    EXPECT_EQ(hook_.takeReports(), path + ": format signature mismatch\n");
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, path.c_str()), 0);
    EXPECT_EQ(unpacked(), 7U);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_MEM | TPL_OWN_IMAGE, owned, image.size()), 0);
    EXPECT_EQ(unpacked(), 7U);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FD, ends[0]), 0);
    EXPECT_EQ(unpacked(), 7U);
    EXPECT_EQ(tpl_jot(TPL_VIA_FD, ends[1], "i", &u), 0);
    close(ends[1]);
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FD, ends[0]), -1) << "another format, whose image is not kept";
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FD, ends[0]), -1) << "end of file";
    const std::string missing = directory.file("missing");
    EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, missing.c_str()), -1);
    EXPECT_EQ(hook_.takeReports(), "format signature mismatch\nCouldn't open file " + missing +
                                       ": No such file or directory\ntpl_load failed for file " + missing + "\n");
  }
  close(ends[0]);
  EXPECT_EQ(hook_.blocks(), 0U);
  EXPECT_EQ(openDescriptors(), open);
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

}  // namespace
}  // namespace zal::test
