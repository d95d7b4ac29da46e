// Loading and unpacking images of both byte orders. Streams of images, and looks into single ones, are tested in
// zal_tpl_gather_test.cpp, damaged ones by fuzz_tpl_load, files and descriptors by fuzz_tpl_files.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

#include "tests/base/tpl_fixture.hpp"
#include "tests/support/temp_dir.hpp"

namespace zal::test {
namespace {

/// The variables that the formats below are mapped to.
struct Variables {
  std::int32_t i;
  std::uint32_t u;
  char c[5];
  double f;
  std::int64_t I;
  std::uint64_t U;
  std::int16_t j;
  std::uint16_t v;
  const char* s[3];
  tpl_blob B;
  struct {
    char c;
    std::int32_t i;
    const char* s;
    double f;
    std::int16_t j;
    std::uint64_t U;
  } nested;
  struct {
    std::int16_t j;
    const char* s;
  } pairs[2], more[2];
};

/// A format, and the data of one image in either byte order.
const struct Format {
  const char* text;
  Map (*map)(const char* text, Variables& v);
  std::string little;
  std::string big;
} kFormats[] = {
    {"iucfIUjvss#c##B",
     [](const char* text, Variables& v) {
       return mapOf(text, &v.i, &v.u, v.c, &v.f, &v.I, &v.U, &v.j, &v.v, v.s, v.s + 1, 2, v.c + 1, 2, 2, &v.B);
     },
     bytes("\2\0\0\0\2\0\0\0\2\0\0\0iklmuvwxcfabcdefgIABCDEFGUKLMNOPQjkvw\4\0\0\0txt\0\0\0\0\1\0\0\0cdef\4\0\0\0blob"),
     bytes("\0\0\0\2\0\0\0\2\0\0\0\2mlkixwvucgfedcbafGFEDCBAIQPONMLKUkjwv\0\0\0\4txt\0\0\0\0\0\0\0\1cdef\0\0\0\4blob")},
    {"S(ci$(sfj)U)v", [](const char* text, Variables& v) { return mapOf(text, &v.nested, &v.v); },
     bytes("ciklm\4\0\0\0txtfabcdefgjkUKLMNOPQvw"), bytes("cmlki\0\0\0\4txtgfedcbafkjQPONMLKUwv")},
    {"S(js)##A(S(js)#uA(I))",
     [](const char* text, Variables& v) { return mapOf(text, v.pairs, 2, 1, v.more, 2, &v.u, &v.I); },
     bytes("\2\0\0\0\1\0\0\0\2\0\0\0jk\2\0\0\0akl\0\0\0\0\2\0\0\0jk\2\0\0\0blm\1\0\0\0uvwx\1\0\0\0IABCDEFGjk\0\0\0\0jk"
           "\2\0\0\0cuvwx\0\0\0\0"),
     bytes("\0\0\0\2\0\0\0\1\0\0\0\2kj\0\0\0\2alk\0\0\0\0\0\0\0\2kj\0\0\0\2bml\0\0\0\1xwvu\0\0\0\1GFEDCBAIkj\0\0\0\0kj"
           "\0\0\0\2cxwvu\0\0\0\0")},
};

/// Unpacks everything of an image and packs it again.
std::string transcode(const Format& format, std::string image, int flags = 0) {
  Variables variables{};
  const Map source = format.map(format.text, variables);
  const Map sink = format.map(format.text, variables);
  EXPECT_EQ(load(source, image, flags), 0);
  tpl_unpack(source.get(), 0);
  tpl_pack(sink.get(), 0);
  while (tpl_unpack(source.get(), 1) > 0) {
    while (tpl_unpack(source.get(), 2) > 0) tpl_pack(sink.get(), 2);
    tpl_pack(sink.get(), 1);
  }
  return dump(sink);
}

class TplLoad : public testing::Test {
 protected:
  EngineHook hook_;
};

TEST_F(TplLoad, ReadsImagesOfBothByteOrdersAndWritesTheSameAgain) {
  for (const Format& format : kFormats) {
    const std::string image = imageOf(format.text, 2, format.little);

    EXPECT_EQ(transcode(format, image), image) << format.text;
    EXPECT_EQ(transcode(format, imageOf(format.text, 3, format.big)), image) << format.text;
    EXPECT_EQ(transcode(format, image + "more", TPL_ALLOW_EXCESS), image) << format.text;
  }
}

TEST_F(TplLoad, RejectsAnImageThatIsCutAnywhere) {
  for (const Format& format : kFormats) {
    Variables variables{};
    const Map map = format.map(format.text, variables);
    std::string image = imageOf(format.text, 2, format.little);
    for (image.pop_back(); !image.empty(); image.pop_back())
      ASSERT_EQ(load(map, image, TPL_ALLOW_EXCESS), -1) << format.text << " of " << image.size();
  }
}

TEST_F(TplLoad, SetsTheArraysBackWithTheRoot) {
  std::string image = documentedImage();
  Command command;
  const Map map = command.map();

  ASSERT_EQ(load(map, image), 0);
  for (int left = 2; left >= 0; --left) EXPECT_EQ(tpl_unpack(map.get(), 1), left);
  EXPECT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_EQ(tpl_Alen(map.get(), 1), 2);
}

TEST_F(TplLoad, TellsNullTextsFromEmptyOnesUnlessTheImageIsOld) {
  std::string image = imageOf("ss", 2, bytes("\0\0\0\0\1\0\0\0"));
  std::string old = imageOf("ss", 0, bytes("\0\0\0\0\2\0\0\0ab"));
  std::string endless = imageOf("ss", 0, bytes("\0\0\0\0\xff\xff\xff\xff"));
  const char* texts[2] = {"", nullptr};
  const Map map = mapOf("ss", &texts[0], &texts[1]);

  ASSERT_EQ(load(map, image), 0);
  ASSERT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_EQ(texts[0], nullptr);
  EXPECT_STREQ(texts[1], "");
  ASSERT_EQ(load(map, old), 0);
  ASSERT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_STREQ(texts[0], "");
  EXPECT_STREQ(texts[1], "ab");
  EXPECT_EQ(load(map, endless), -1);
}

TEST_F(TplLoad, SaysWhyAnImageIsRejected) {
  std::int32_t numbers[4] = {};
  const Map map = mapOf("i#", numbers, 4);
  const std::string invalid = "not a valid tpl file\n";
  const std::string image = jot("i#", numbers, 4);
  const auto altered = [&](std::size_t at, char byte) { return image.substr(0, at) + byte + image.substr(at + 1); };
  const struct {
    std::string image;
    std::string report;
  } kRows[] = {
      {"tpl", invalid},           {bytes("tpl\0\x0a\0\0\0i#"), invalid},
      {altered(0, 'T'), invalid}, {altered(3, 4), invalid},  // a flag that there is not
      {altered(4, 30), invalid},                             // a byte less than there are
      {altered(11, 3), invalid},                             // another count
      {image + "more", invalid},  {jot("u#", numbers, 4), "format signature mismatch\n"},
  };

  for (const auto& row : kRows) {
    std::string copy = row.image;
    EXPECT_EQ(load(map, copy, TPL_OWN_IMAGE), -1) << "and the image is not freed";
    EXPECT_EQ(hook_.takeReports(), row.report);
    EXPECT_EQ(tpl_unpack(map.get(), 0), -1);
  }
  EXPECT_EQ(tpl_load(map.get(), TPL_ALLOW_EXCESS), -1);
  EXPECT_EQ(hook_.takeReports(), "unsupported tpl_load mode 8\n");
}

TEST_F(TplLoad, NeitherHangsNorCountsBelowZeroWhenElementsTakeNoBytes) {
  const Map map = mapOf("A");
  std::string image = bytes("tpl\0\x0e\0\0\0A\0\xff\xff\xff\xff");

  ASSERT_EQ(load(map, image), 0);
  EXPECT_EQ(tpl_Alen(map.get(), 1), INT_MAX);
  EXPECT_EQ(tpl_unpack(map.get(), 1), INT_MAX);
}

TEST_F(TplLoad, TakesWhatTheSameMapHasPackedAndSaysWhatItCannotTake) {
  std::int32_t value = 7;
  const Map map = mapOf("i", &value);
  tpl_pack(map.get(), 0);
  value = 0;
  EXPECT_EQ(tpl_unpack(map.get(), 0), 1);
  EXPECT_EQ(value, 7);

  const TempDir directory;
  const std::string path = directory.file("image");
  EXPECT_EQ(tpl_jot(TPL_VIA_FILE, path.c_str(), "u", &value), 0);
  EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, path.c_str()), -1);
  EXPECT_EQ(tpl_load(map.get(), TPL_VIA_FILE, "/no/image"), -1);
  EXPECT_EQ(tpl_load(map.get(), 0), -1);
  EXPECT_EQ(tpl_dump(map.get(), 0), -1);
  EXPECT_EQ(tpl_load(nullptr, TPL_VIA_FILE, "/no/map"), -1);
  EXPECT_EQ(tpl_peek(0), nullptr);
  EXPECT_EQ(tpl_peek(TPL_VIA_FILE | TPL_FXLENS | TPL_DATAPEEK), nullptr);
  EXPECT_EQ(hook_.takeReports(),
            path +
                ": format signature mismatch\n"
                "Couldn't open file /no/image: No such file or directory\ntpl_load failed for file /no/image\n"
                "unsupported tpl_load mode 0\nunsupported tpl_dump mode 0\nerror: tpl_load to non-root node\n"
                "unsupported tpl_peek mode 0\nTPL_FXLENS and TPL_DATAPEEK mutually exclusive\n");
}

}  // namespace
}  // namespace zal::test
