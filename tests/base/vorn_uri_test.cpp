#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <zal/zal_uri.h>

#include <cstring>
#include <string>

namespace {

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
  const struct {
    const char *text, *expected;
  } cases[] = {{"a%20b%20c", "a b c"}, {"%41%42", "AB"},  {"50%", "50%"}, {"50%4", "50%4"},
               {"%00x", "x"},          {"%4zA", "\004A"}, {"%z4A", "A"},  {"% 41", "1"},
               {"%-1x", "x"},          {"%0x41", "41"},   {"%%41", "1"}};
  for (const auto& c : cases) EXPECT_EQ(decoded(c.text), c.expected) << c.text;

  EXPECT_EQ(decoded("%41%42%43", 3), "AB");
  EXPECT_EQ(decoded("abc", 1), "");
  EXPECT_EQ(decoded("abc", 0), "");
  EXPECT_EQ(decoded(std::string(999999, '%'), 2048), "");
}

TEST(VornUri, SplitsAUriIntoItsFields) {
  const servent* ssh = getservbyname("ssh", "tcp");  // 22, on a machine that has a services database
  const int32_t sshPort = ssh == nullptr ? 0 : ntohs(static_cast<uint16_t>(ssh->s_port));
  const struct {
    const char *uri, *scheme, *host;
    int32_t port;
    const char *path, *query, *fragment;
  } cases[] = {
      {"file:///tmp/zalIPC.sock", "file", "", 0, "/tmp/zalIPC.sock", "", ""},
      {"file:/tmp/x", "file", "", 0, "", "", ""},
      {"tcp://h:5000/a?b#c", "tcp", "h", 5000, "/a", "b", "c"},
      {"ssh://10.0.0.1/x", "ssh", "10.0.0.1", sshPort, "/x", "", ""},
      {"noservice://h/x", "noservice", "h", 0, "/x", "", ""},
      {"a-very-long-scheme://h:1", "a-very-long-sch", "h", 1, "", "", ""},
      {"tcp://h:99999999999/x", "tcp", "h", INT32_MAX, "/x", "", ""},
      {"tcp://h:1:2?x", "tcp", "h", 1, "", "", ""},
      {"svc//x", "", "x", 0, "", "", ""},
      {"svc?u=tcp://h", "", "", 0, "svc", "u=tcp://h", ""},
      {"C:\\dir\\file", "", "", 0, "C:/dir/file", "", ""},
      {"path#frag", "", "", 0, "path", "", "frag"},
      {"a#b?c", "", "", 0, "a#b", "c", "b?c"},
      {"a%3Fb%23c", "", "", 0, "a", "b", "c"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    const vorn_uri_parts parts = parsed(c.uri);
    EXPECT_STREQ(parts.scheme, c.scheme);
    EXPECT_STREQ(parts.host, c.host);
    EXPECT_EQ(parts.port, c.port);
    EXPECT_STREQ(parts.path, c.path);
    EXPECT_STREQ(parts.query, c.query);
    EXPECT_STREQ(parts.fragment, c.fragment);
  }
}

TEST(VornUri, CutsOverlongPartsToTheirFields) {
  const std::string longText(3000, 'a');

  EXPECT_EQ(parsed(longText).path, longText.substr(0, 1023));
  EXPECT_EQ(parsed("//" + longText).host, longText.substr(0, 1023));
  EXPECT_EQ(parsed("p?" + longText).query, longText.substr(0, 1021)) << "path and query share one working field";
  EXPECT_EQ(std::string{parsed("//h" + std::string(1022, '1') + ":8080/p").host}.size(), 1023U);
}

TEST(VornUri, NamesThePluginByTheFirstPathSegment) {
  for (const char* uri : {"tcp://10.0.0.1:5000/svc/method", "svc/method?x=1", "svc", "file:///svc/x"}) {
    char name[8] = "before";
    vorn_uri_get_plugin_name(uri, name, sizeof name);
    EXPECT_STREQ(name, "svc") << uri;
  }
}

TEST(VornUri, FindsATagByItsWholeKey) {
  char value[8] = "before";
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?include=a&exclude=b", "range", value, sizeof value), 0);
  EXPECT_STREQ(value, "before");
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?include=a&exclude=b", "exclude", value, sizeof value), 1);
  EXPECT_STREQ(value, "b");
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?x=a%26b", "x", value, sizeof value), 1);
  EXPECT_STREQ(value, "a");
  EXPECT_EQ(vorn_uri_find_tagvalue("svc?x=0123456789", "x", value, 4), 1);
  EXPECT_STREQ(value, "012");

  EXPECT_EQ(vorn_uri_find_tag("svc?a&b=1", "a"), 0);
  EXPECT_EQ(vorn_uri_find_tag("svc?a&b=1", "a&b"), 1);
  EXPECT_EQ(vorn_uri_find_tag("svc?a&b=1", "b"), 1);
  EXPECT_EQ(vorn_uri_find_tag("svc?ab=1", "b"), 0);
  EXPECT_EQ(vorn_uri_find_tag("b=1", "b"), 0);
}

TEST(VornUri, JoinsPathAndQueryWithinTheBuffer) {
  vorn_uri_parts parts = parsed("a%2520b?x=1");
  char buffer[6];

  EXPECT_EQ(vorn_uri_getPathQuery(&parts, buffer, sizeof buffer), 7) << "what it would take";
  EXPECT_STREQ(buffer, "a b?x");
  parts.query[0] = '\0';
  EXPECT_EQ(vorn_uri_getPathQuery(&parts, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "a b");
}

TEST(VornUri, TakesNullsAsNothing) {
  char buffer[] = "before";
  EXPECT_EQ(vorn_uri_decode(nullptr, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(vorn_uri_decode("abc", nullptr, 9), 0);
  EXPECT_EQ(vorn_uri_parse("abc", nullptr), 0);
  EXPECT_EQ(vorn_uri_get_plugin_name(nullptr, nullptr, 9), 0);
  EXPECT_EQ(vorn_uri_find_tag(nullptr, "x"), 0);
  EXPECT_EQ(vorn_uri_find_tagvalue("?x=1", nullptr, buffer, sizeof buffer), 0);
  EXPECT_EQ(vorn_uri_find_tagvalue("?x=1", "x", nullptr, 9), 1);
  EXPECT_EQ(vorn_uri_getPathQuery(nullptr, nullptr, 9), 0);
}

}  // namespace
