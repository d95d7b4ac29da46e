#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "base/zal_message.hpp"
#include "tests/support/data_model.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace zal::test;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr const char* kList = R"({"list":[0,1,2,3,4,5,6,7,8,9]})";

// A message that is destroyed with the test, as the dispatcher destroys it.
class Message : public ::testing::Test {
 public:
  ~Message() override { ZAL_Message_Destroy(message_); }

 protected:
  [[nodiscard]] std::string print() const { return take(ZAL_Message_DumpOutput(message_)); }
  void setData(const std::string& json) const { ZAL_Message_SetData(message_, parse(json).release()); }
  [[nodiscard]] std::string data() const { return textOf(ZAL_Message_GetData(message_)); }
  ZAL_MessageHandle message_ = ZAL_Message_Create();
};

TEST_F(Message, PrintsItsEnvelopeInOrder) {
  ZAL_Message_SetVersion(message_, 4000000000U);
  ZAL_Message_SetError(message_, 0, "no", "error");
  setData(R"({"n":1})");
  EXPECT_THAT(print(), MatchesRegex(R"(\{"version":4000000000,"timestamp":[0-9]{10}(\.[0-9]+)?,"data":\{"n":1\}\})"));
}

TEST_F(Message, PrintsAnErrorAlone) {
  setData(kList);
  ZAL_Message_SetError(message_, 1, "first", "replaced");
  ZAL_Message_SetError(message_, -404, nullptr, "no \"such\" thing");
  EXPECT_EQ(print(), R"({"error":{"code":-404,"source":"","message":"no \"such\" thing"}})");
}

TEST_F(Message, ShowsItsPresentDataWheneverItIsPrinted) {
  setData(kList);
  EXPECT_THAT(print(), MatchesRegex(R"(\{"timestamp":[0-9.]+,"data":\{"list":\[0.*9\]\}\})"));
  ZAL_Array_Prune(HandlePtr{ZAL_Object_GetArray(ZAL_Message_GetData(message_), "list")}.get(), 8, -1);
  EXPECT_THAT(print(), MatchesRegex(R"re((,?.?"timestamp":[0-9.]+,"data":\{"list":\[8,9\]\}){2}\})re"));
  ZAL_Message_SetData(message_, nullptr);
  EXPECT_THAT(print(), MatchesRegex(R"re((,?.?"timestamp":[0-9.]+,"data":null){2},"timestamp":[0-9.]+\})re"));
}

TEST_F(Message, CutsTheArrayThatItsFilterNames) {
  const char* all = "0,1,2,3,4,5,6,7,8,9";
  using Row = std::tuple<const char*, const char*, const char*>;  // filter, what is kept, log line
  for (const auto& [filter, kept, line] :
       {Row{"?include=list", all, ""}, Row{"?range=2:3&include=list", "2,3,4", ""},
        Row{"?include=list&range=\"2:3\"", "2,3,4", ""}, Row{"?include=list&range=:4", "6,7,8,9", ""},
        Row{"?include=list&range=8", "8,9", ""}, Row{"?include=list&range=:99999999999", all, ""},
        Row{"?include=list&range=99999999999:1", all, "failed to apply range filter\n"},
        Row{"?include=none&range=2:3", all, "invalid range filter\n"}}) {
    const LogCapture log;
    zal::setMessageFilter(message_, filter);
    setData(kList);
    const bool isQuiet = *line == '\0';
    EXPECT_EQ(data(), std::string{R"({"list":[)"} + kept + "]}") << filter;
    EXPECT_EQ(log.text().empty(), isQuiet) << filter;
    EXPECT_THAT(log.text(), HasSubstr(isQuiet ? "" : std::string{"):ZAL_Message_SetData(): "} + line));
  }

  zal::setMessageFilter(message_, "?range=1:2");
  setData("[1,2,3,4]");
  EXPECT_EQ(data(), "[2,3]");
  ZAL_Message_SetData(message_, ZAL_Message_GetData(message_));
  EXPECT_EQ(data(), "[2,3]");
}

TEST_F(Message, DecodesItsPayloadAndReplacesItAlsoByAPartOfIt) {
  const LogCapture log;
  std::uint8_t* bytes = nullptr;
  std::uint32_t size = 77;
  for (const char* json : {R"({"data":"YW Jj"})", R"({"data":""})", R"({"data":5})"}) {
    setData(json);
    ZAL_Message_GetPayload(message_, &bytes, &size);
    EXPECT_EQ(std::pair(bytes == nullptr, size), std::pair(true, 0U)) << json;
  }
  EXPECT_EQ(log.count("ZAL_Message_GetPayload(): GetPayload unable to find data\n"), 1);

  setData(R"({"data":"YWJjZA=="})");
  ZAL_Message_GetPayload(message_, &bytes, &size);
  ASSERT_EQ(size, 4U);
  EXPECT_EQ(std::string(bytes, bytes + size), "abcd");
  ZAL_Message_SetPayload(message_, bytes + 1, 3);
  EXPECT_THAT(print(), MatchesRegex(R"(.*,"data":"YmNk"\})"));
  ZAL_Message_SetPayload(message_, nullptr, 3);
  EXPECT_THAT(print(), MatchesRegex(R"(.*,"data":\{"data":"YWJjZA=="\}\})"));
}

TEST_F(Message, CutsLongNames) {
  ZAL_Message_SetName(message_, std::string(300, 'n').c_str());
  ZAL_Message_SetOptionalParam(message_, std::string(20, 'p').c_str());

  EXPECT_EQ(ZAL_Message_GetName(message_), std::string(255, 'n'));
  EXPECT_EQ(ZAL_Message_GetOptionalParam(message_), std::string(15, 'p'));
}

TEST(NullMessage, IsAllowedWhereItOwnsOrFills) {
  std::uint32_t size = 1;
  ZAL_Message_SetData(nullptr, ZAL_Array_Create());
  ZAL_Message_GetPayload(nullptr, nullptr, &size);
  EXPECT_EQ(size, 0U);
}

}  // namespace
