#include <gtest/gtest.h>
#include <zal/zal_uri.h>

#include <cstring>
#include <string>
#include <utility>

namespace {

using Row = std::pair<const char*, const char*>;

std::string decoded(const std::string& text, size_t size = 64) {
  std::string output(size, 'x');
  EXPECT_EQ(vorn_uri_decode(text.c_str(), output.data(), size), 0);
  return output.substr(0, output.find('\0'));
}

vorn_uri_parts parsed(const std::string& uri) {
  vorn_uri_parts parts;
  std::memset(&parts, 'x', sizeof parts);
  EXPECT_EQ(vorn_uri_parse(uri.c_str(), &parts), 0);
  return parts;
}

TEST(VornUri, DecodesTwoCharactersPerPercentAndNoMore) {
  const Row cases[] = {{"a%20b%4a", "a bJ"}, {"50%4", "50%4"}, {"%00x", "x"}, {"%4zA", "\004A"},
                       {"%-1x", "x"},        {"%0x41", "41"},  {"%%41", "1"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(decoded(text), expected) << text;

  EXPECT_EQ(decoded("%41%42%43", 3), "AB");
  EXPECT_EQ(decoded("abc", 0), "");
  EXPECT_EQ(decoded(std::string(999999, '%'), 2048), "");
}

// The fields in their order: scheme, host, port, path, query, fragment.
TEST(VornUri, SplitsAUriIntoItsFields) {
  const Row cases[] = {{"file:///tmp/zalIPC.sock", "file||0|/tmp/zalIPC.sock||"},
                       {"tcp://h:5000/a?b#c", "tcp|h|5000|/a|b|c"},
                       {"a-very-long-scheme://h:1:2?x", "a-very-long-sch|h|1|||"},
                       {"noservice://h:99999999999/x", "noservice|h|2147483647|/x||"},
                       {"svc?u=tcp://h", "||0|svc|u=tcp://h|"},
                       {"C:\\dir#frag", "||0|C:/dir||frag"},
                       {"a#b?c", "||0|a#b|c|b?c"},
                       {"a%3Fb%23c", "||0|a|b|c"}};
  for (const auto& [uri, expected] : cases) {
    const vorn_uri_parts p = parsed(uri);
    const std::string authority = std::string{p.scheme} + '|' + p.host + '|' + std::to_string(p.port);
    EXPECT_EQ(authority + '|' + p.path + '|' + p.query + '|' + p.fragment, expected) << uri;
  }
}

TEST(VornUri, CutsOverlongPartsToTheirFields) {
  const std::string longText(3000, 'a');

  EXPECT_EQ(parsed("//" + longText).host, longText.substr(0, 1023));
  EXPECT_EQ(parsed("p?" + longText).query, longText.substr(0, 1021)) << "path and query share one working field";
  EXPECT_EQ(std::string{parsed("//h" + std::string(1022, '1') + ":8080/p").host}.size(), 1023U);
}

TEST(VornUri, FindsThePluginAndATagByItsWholeKey) {
  char value[4] = "old";
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?include=a&exclude=b", "clude", value, sizeof value), 0);
  EXPECT_STREQ(value, "old");
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?x=a%26b", "x", value, sizeof value), 1);
  EXPECT_STREQ(value, "a");
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?a&b=1&x=0123456789", "x", value, sizeof value), 1);
  EXPECT_STREQ(value, "012");
  for (const char* uri : {"tcp://10.0.0.1:5000/svc/method", "svc?x=1"}) {
    vorn_uri_get_plugin_name(uri, value, sizeof value);
    EXPECT_STREQ(value, "svc") << uri;
  }
}

TEST(VornUri, JoinsPathAndQueryWithinTheBuffer) {
  const vorn_uri_parts parts = parsed("a%2520b?x=1");
  char buffer[6];

  EXPECT_EQ(vorn_uri_getPathQuery(&parts, buffer, sizeof buffer), 7) << "what it would take";
  EXPECT_STREQ(buffer, "a b?x");
}

TEST(VornUri, TakesNullsAsNothing) {
  char buffer[] = "before";
  vorn_uri_decode(nullptr, buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(vorn_uri_decode("abc", nullptr, 9), 0);
  EXPECT_EQ(vorn_uri_parse("abc", nullptr), 0);
  EXPECT_EQ(vorn_uri_get_plugin_name(nullptr, nullptr, 9), 0);
  EXPECT_EQ(vorn_uri_find_tag("?x=1", nullptr), 0);
  EXPECT_EQ(vorn_uri_find_tagvalue(nullptr, nullptr, buffer, 9), 0);
  EXPECT_EQ(vorn_uri_find_tagvalue("?x=1", "x", nullptr, 9), 1);
  EXPECT_EQ(vorn_uri_getPathQuery(nullptr, nullptr, 9), 0);
}

}  // namespace
