#include <gtest/gtest.h>
#include <zal/zal_uri.h>

#include <memory>
#include <string>
#include <tuple>

namespace {

using UriPtr = std::unique_ptr<ZAL_UriParserHandle_, decltype(&ZAL_UriParser_Destroy)>;

UriPtr parse(const std::string& uri) {
  return {ZAL_UriParser_Create(uri.c_str()), ZAL_UriParser_Destroy};
}

using Getter = void (*)(ZAL_UriParserHandle, char*, size_t);

/// What a getter leaves in a buffer of exactly `size` bytes (on the heap, where a sanitizer sees one byte too many).
std::string get(Getter getter, const std::string& uri, size_t size = 128) {
  std::string buffer(size, 'x');
  getter(parse(uri).get(), buffer.data(), size);
  return buffer.substr(0, buffer.find('\0'));
}

TEST(UriParser, SplitsThePathAlsoAroundEmptySegments) {
  const std::pair<const char*, const char*> cases[] = {
      {"svc/method/x?a=1#f", "svc | svc/method/x | method/x?a=1#f"},
      {"a/b/", "a | a/b/ | b/"},
      {"svc//x", "svc | svc//x | /x"},
      {"//host//x", " | /x | x"},
      {"file:///tmp/zalIPC.sock", "tmp | tmp/zalIPC.sock | zalIPC.sock"},
      {"tcp://host/?x=1", " |  | ?x=1"},
      {"/?x=1", " |  | "}};
  for (const auto& [uri, expected] : cases) {
    const std::string path = get(ZAL_UriParser_GetRootName, uri) + " | " + get(ZAL_UriParser_GetPath, uri);
    EXPECT_EQ(path + " | " + get(ZAL_UriParser_GetPathQuery, uri), expected) << uri;
  }
}

TEST(UriParser, CutsWhatDoesNotFitAndLeavesAnOverlongRootEmpty) {
  EXPECT_EQ(get(ZAL_UriParser_GetRootName, std::string(126, 'm')), std::string(126, 'm'));
  EXPECT_EQ(get(ZAL_UriParser_GetRootName, std::string(127, 'm')), "");
  EXPECT_EQ(get(ZAL_UriParser_GetPathQuery, "a/bcdef", 4), "bc");
  for (Getter getter : {ZAL_UriParser_GetRootName, ZAL_UriParser_GetPath, ZAL_UriParser_GetPathQuery})
    EXPECT_EQ(get(getter, "abc/def?x", 0), "");
  EXPECT_EQ(get(ZAL_UriParser_GetPath, std::string(1000000, '/'), 512), std::string(511, '/'));
}

TEST(UriParser, GivesHostAndPort) {
  const std::tuple<const char*, const char*, int, int> cases[] = {
      {"tcp://[::1]:7/x", "::1", 7, ZAL_URI_OK},
      {"tcp://h:99999999999999999999/x", "h", INT32_MAX, ZAL_URI_OK},
      {"tcp://h", "h", 0, ZAL_URI_NOT_AVAILABLE},
      {"file:///tmp/x", "", 0, ZAL_URI_NOT_AVAILABLE}};
  for (const auto& [uri, host, expected, result] : cases) {
    int32_t port = -1;
    EXPECT_EQ(get(ZAL_UriParser_GetHost, uri), host);
    EXPECT_EQ(ZAL_UriParser_GetPortNumber(parse(uri).get(), &port), result) << uri;
    EXPECT_EQ(port, expected) << uri;
  }
  EXPECT_EQ(get(ZAL_UriParser_GetHost, "svc/method", 4), "xxxx") << "without a host the buffer stays as it was";
}

TEST(UriParser, FindsATagAnywhereInTheQueryButNoValueBehindIt) {
  using Row = std::tuple<const char*, int, const char*>;
  const Row cases[] = {{"p?include=a+b&x=c", 1, "a+b"}, {"p?myinclude=c#f", 1, "c"},
                       {"p?x=1&include", 1, ""},        {"p?x=1#include=a", 1, ""},
                       {"p?include#=a", 1, ""},         {"p?include=0123456789", 1, "0123456"},
                       {"include/p?x=1", 0, ""},        {"p#include=a", 0, ""}};
  for (const auto& [uri, found, expected] : cases) {
    char value[8] = "before";
    EXPECT_EQ(ZAL_UriParser_FindTagValue(parse(uri).get(), "include", value, sizeof value), found) << uri;
    EXPECT_STREQ(value, expected) << uri;
  }
}

TEST(UriParser, RejectsWhatIsNoUriAndTakesNullsAsNothing) {
  for (const char* text : {"a b", "50%", "1:x", "[", static_cast<const char*>(nullptr)})
    EXPECT_EQ(ZAL_UriParser_Create(text), nullptr);

  int32_t port = 5;
  EXPECT_EQ(ZAL_UriParser_GetPortNumber(nullptr, &port), ZAL_URI_NOT_AVAILABLE);
  EXPECT_EQ(ZAL_UriParser_FindTagValue(nullptr, "x", nullptr, 9), 0);
  for (Getter getter : {ZAL_UriParser_GetHost, ZAL_UriParser_GetRootName, ZAL_UriParser_GetPath})
    getter(nullptr, nullptr, 9);
  ZAL_UriParser_Destroy(nullptr);
}

}  // namespace
