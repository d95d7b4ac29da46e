#include <gtest/gtest.h>
#include <zal/zal_uri.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

struct Destroy {
  void operator()(ZAL_UriParserHandle handle) const { ZAL_UriParser_Destroy(handle); }
};
using UriPtr = std::unique_ptr<ZAL_UriParserHandle_, Destroy>;

using Getter = void (*)(ZAL_UriParserHandle, char*, size_t);

/// What a getter leaves in a buffer of exactly `size` bytes (on the heap, where a sanitizer sees one byte too many).
std::string get(Getter getter, const std::string& uri, size_t size = 128) {
  const UriPtr handle{ZAL_UriParser_Create(uri.c_str())};
  EXPECT_TRUE(handle) << uri;
  std::string buffer(size, 'x');
  getter(handle.get(), buffer.data(), size);
  return buffer.substr(0, buffer.find('\0'));
}

std::string tagValue(const std::string& uri, const char* tag, int expected = 1) {
  const UriPtr handle{ZAL_UriParser_Create(uri.c_str())};
  char value[16] = "before";
  EXPECT_EQ(ZAL_UriParser_FindTagValue(handle.get(), tag, value, sizeof value), expected) << uri;
  return value;
}

TEST(UriParser, SplitsThePathAlsoAroundEmptySegments) {
  const struct {
    const char *uri, *root, *path, *pathQuery;
  } cases[] = {
      {"svc/method/x?a=1", "svc", "svc/method/x", "method/x?a=1"},
      {"svc?a=1#f", "svc", "svc", "?a=1#f"},
      {"svc/x#f", "svc", "svc/x", "x#f"},
      {"a/b/", "a", "a/b/", "b/"},
      {"svc/?x=1", "svc", "svc/", "?x=1"},
      {"svc//x", "svc", "svc//x", "/x"},
      {"//host//x", "", "/x", "x"},
      {"file:///tmp/zalIPC.sock", "tmp", "tmp/zalIPC.sock", "zalIPC.sock"},
      {"tcp://127.0.0.1:5000", "", "", ""},
      {"tcp://host/?x=1", "", "", "?x=1"},
      {"urn:a/b?c", "a", "a/b", "b?c"},
      {"/?x=1", "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    EXPECT_EQ(get(ZAL_UriParser_GetRootName, c.uri), c.root);
    EXPECT_EQ(get(ZAL_UriParser_GetPath, c.uri), c.path);
    EXPECT_EQ(get(ZAL_UriParser_GetPathQuery, c.uri), c.pathQuery);
  }
}

TEST(UriParser, CutsWhatDoesNotFitAndLeavesAnOverlongRootEmpty) {
  EXPECT_EQ(get(ZAL_UriParser_GetRootName, std::string(126, 'm')), std::string(126, 'm'));
  EXPECT_EQ(get(ZAL_UriParser_GetRootName, std::string(127, 'm')), "");
  EXPECT_EQ(get(ZAL_UriParser_GetPath, "abcdef", 4), "abc");
  EXPECT_EQ(get(ZAL_UriParser_GetHost, "tcp://abcdef", 4), "abc");
  EXPECT_EQ(get(ZAL_UriParser_GetPathQuery, "a/bcdef", 4), "bc");
  EXPECT_EQ(get(ZAL_UriParser_GetPathQuery, "a?bcdef", 1), "");
  for (Getter getter : {ZAL_UriParser_GetRootName, ZAL_UriParser_GetPath, ZAL_UriParser_GetPathQuery})
    EXPECT_EQ(get(getter, "abc/def?x", 0), "");
  EXPECT_EQ(get(ZAL_UriParser_GetPath, std::string(1000000, '/'), 512), std::string(511, '/'));
}

TEST(UriParser, GivesHostAndPort) {
  const struct {
    const char *uri, *host;
    int32_t port;
    int result;
  } cases[] = {
      {"tcp://127.0.0.1:5000", "127.0.0.1", 5000, ZAL_URI_OK},
      {"tcp://[::1]:7/x", "::1", 7, ZAL_URI_OK},
      {"tcp://h:99999999999999999999/x", "h", INT32_MAX, ZAL_URI_OK},
      {"tcp://h:/x", "h", 0, ZAL_URI_OK},
      {"tcp://h", "h", 0, ZAL_URI_NOT_AVAILABLE},
      {"file:///tmp/x", "", 0, ZAL_URI_NOT_AVAILABLE},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    const UriPtr handle{ZAL_UriParser_Create(c.uri)};
    int32_t port = -1;
    EXPECT_EQ(get(ZAL_UriParser_GetHost, c.uri), c.host);
    EXPECT_EQ(ZAL_UriParser_GetPortNumber(handle.get(), &port), c.result);
    EXPECT_EQ(port, c.port);
  }
  EXPECT_EQ(get(ZAL_UriParser_GetHost, "svc/method", 4), "xxxx") << "without a host the buffer stays as it was";
}

TEST(UriParser, FindsATagAnywhereInTheQueryButNoValueBehindIt) {
  EXPECT_EQ(tagValue("p?include=a+b&exclude=c", "include"), "a+b");
  EXPECT_EQ(tagValue("p?include=a+b&exclude=c#f", "exclude"), "c");
  EXPECT_EQ(tagValue("p?myinclude=a", "include"), "a");
  EXPECT_EQ(tagValue("p?x=1&include", "include"), "");
  EXPECT_EQ(tagValue("p?x=1#include=a", "include"), "");
  EXPECT_EQ(tagValue("p?include#=a", "include"), "");
  EXPECT_EQ(tagValue("p?x=0123456789abcdefgh", "x"), "0123456789abcde");
  EXPECT_EQ(tagValue("include/p?x=1", "include", 0), "");
  EXPECT_EQ(tagValue("p#include=a", "include", 0), "");
}

TEST(UriParser, RejectsWhatIsNoUriAndTakesNullsAsNothing) {
  for (const char* text : {"a b", "50%", "1:x", "[", static_cast<const char*>(nullptr)})
    EXPECT_EQ(ZAL_UriParser_Create(text), nullptr);

  char buffer[] = "before";
  int32_t port = 5;
  EXPECT_EQ(ZAL_UriParser_GetPortNumber(nullptr, &port), ZAL_URI_NOT_AVAILABLE);
  EXPECT_EQ(ZAL_UriParser_FindTagValue(nullptr, "x", nullptr, 9), 0);
  ZAL_UriParser_GetHost(nullptr, buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "before");
  ZAL_UriParser_GetPath(nullptr, buffer, sizeof buffer);
  EXPECT_STREQ(buffer, "");
  ZAL_UriParser_Destroy(nullptr);
}

}  // namespace
