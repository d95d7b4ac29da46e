#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

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
  /// The bytes that GetPayload finds; "(null)" for none.
  [[nodiscard]] std::string payload() const {
    std::uint8_t* bytes = nullptr;
    std::uint32_t size = 77;
    ZAL_Message_GetPayload(message_, &bytes, &size);
    return bytes == nullptr ? size == 0 ? "(null)" : "a size without bytes" : std::string{bytes, bytes + size};
  }

  ZAL_MessageHandle message_ = ZAL_Message_Create();
};

TEST_F(Message, PrintsItsTimeAlone) {
  EXPECT_THAT(print(), MatchesRegex(R"(\{"timestamp":[0-9]{10}(\.[0-9]+)?\})"));
}

TEST_F(Message, PrintsItsEnvelopeInOrder) {
  ZAL_Message_SetError(message_, 0, "no", "error");
  setData(R"({"n":1})");
  ZAL_Message_SetVersion(message_, 4000000000U);
  EXPECT_THAT(print(), MatchesRegex(R"(\{"version":4000000000,"timestamp":[0-9.]+,"data":\{"n":1\}\})"));
}

TEST_F(Message, PrintsAnErrorAlone) {
  setData(kList);
  ZAL_Message_SetVersion(message_, 2);
  ZAL_Message_SetError(message_, 1, "first", "replaced");
  ZAL_Message_SetError(message_, -404, nullptr, "no \"such\" thing");

  EXPECT_EQ(print(), R"({"error":{"code":-404,"source":"","message":"no \"such\" thing"}})");
}

TEST_F(Message, ShowsItsPresentDataWheneverItIsPrinted) {
  setData(kList);
  const std::string first = print();
  ZAL_Array_Prune(HandlePtr{ZAL_Object_GetArray(ZAL_Message_GetData(message_), "list")}.get(), 8, -1);
  const std::string second = print();
  setData(R"({"new":true})");
  const std::string third = print();
  ZAL_Message_SetData(message_, nullptr);

  EXPECT_THAT(first, MatchesRegex(R"(\{"timestamp":[0-9.]+,"data":\{"list":\[0.*9\]\}\})"));
  EXPECT_THAT(second, MatchesRegex(R"re((,?.?"timestamp":[0-9.]+,"data":\{"list":\[8,9\]\}){2}\})re"));
  EXPECT_THAT(third, MatchesRegex(R"re((,?.?"timestamp":[0-9.]+,"data":\{"new":true\}){3}\})re"));
  EXPECT_THAT(print(), MatchesRegex(R"re((,?.?"timestamp":[0-9.]+,"data":null){3},"timestamp":[0-9.]+\})re"));
}

TEST_F(Message, CutsTheArrayThatItsFilterNames) {
  const char* all = "0,1,2,3,4,5,6,7,8,9";
  using Row = std::tuple<const char*, const char*, const char*>;  // filter, what is kept, log line
  for (const auto& [filter, kept, line] :
       std::vector<Row>{{nullptr, all, ""},
                        {"?include=list", all, ""},
                        {"svc?include=list&range=2:3", "2,3,4", ""},
                        {"?range=2:3&include=list", "2,3,4", ""},
                        {"?include=list&range=\"2:3\"", "2,3,4", ""},
                        {"?include=list&range=:4", "6,7,8,9", ""},
                        {"?include=list&range=-2:4", "6,7,8,9", ""},
                        {"?include=list&range=7:", "7,8,9", ""},
                        {"?include=list&range=8", "8,9", ""},
                        {"?include=list&range=\":3\"", "7,8,9", ""},
                        {"?include=list&range", all, ""},
                        {"?include=list&range=:99999999999", all, ""},
                        {"?include=list&range=99999999999:1", all, "failed to apply range filter\n"},
                        {"?range=2:3", all, "invalid range filter\n"},
                        {"?include=none&range=2:3", all, "invalid range filter\n"}}) {
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

TEST_F(Message, TakesTheNodesFromTheHandlesOfElementsThatARangeCuts) {
  zal::setMessageFilter(message_, "?include=list&range=1:1");
  ZAL_ObjectHandle top = ZAL_Object_Create();
  ZAL_ObjectHandle list = ZAL_Object_AddArray(top, "list");
  ZAL_ObjectHandle cut = ZAL_Array_AddObject(list);
  ZAL_ObjectHandle kept = ZAL_Array_AddObject(list);

  ZAL_Message_SetData(message_, top);

  EXPECT_EQ(ZAL_Object_AddInt32(cut, "n", 1), 0);
  EXPECT_EQ(ZAL_Object_AddInt32(kept, "n", 2), 1);
  EXPECT_EQ(data(), R"({"list":[{"n":2}]})");
}

TEST_F(Message, DecodesThePayloadOfItsData) {
  for (const auto& [json, bytes] : std::vector<std::pair<const char*, const char*>>{{R"({"data":"YWJjZA=="})", "abcd"},
                                                                                    {R"({"data":"YW Jj"})", "(null)"},
                                                                                    {R"({"data":"YWI="})", "ab"},
                                                                                    {R"({"data":""})", "(null)"}}) {
    setData(json);
    EXPECT_EQ(payload(), bytes) << json;
  }

  const LogCapture log;
  setData(R"({"data":5})");
  EXPECT_EQ(payload(), "(null)");
  EXPECT_EQ(log.count("ZAL_Message_GetPayload(): GetPayload unable to find data\n"), 1);
}

TEST_F(Message, ReplacesItsPayloadAlsoByAPartOfIt) {
  setData(R"({"data":"YWJjZA=="})");
  std::uint8_t* bytes = nullptr;
  ZAL_Message_GetPayload(message_, &bytes, nullptr);

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
  ZAL_Message_SetName(message_, nullptr);
  EXPECT_STREQ(ZAL_Message_GetName(message_), "");
}

TEST(NullMessage, IsAllowedEverywhere) {
  std::uint32_t size = 1;
  ZAL_Message_SetName(nullptr, "n");
  ZAL_Message_SetOptionalParam(nullptr, "p");
  ZAL_Message_SetVersion(nullptr, 1);
  ZAL_Message_SetError(nullptr, 1, "s", "m");
  ZAL_Message_SetPayload(nullptr, "b", 1);
  ZAL_Message_SetData(nullptr, ZAL_Array_Create());
  ZAL_Message_GetPayload(nullptr, nullptr, &size);
  ZAL_Message_Destroy(nullptr);
  zal::setMessageFilter(nullptr, "f");

  EXPECT_EQ(size, 0U);
  EXPECT_EQ(ZAL_Message_GetName(nullptr), nullptr);
  EXPECT_EQ(ZAL_Message_GetFilter(nullptr), nullptr);
  EXPECT_EQ(ZAL_Message_GetData(nullptr), nullptr);
  EXPECT_EQ(take(ZAL_Message_DumpOutput(nullptr)), "(null)");
  const HandlePtr unfiltered{ZAL_TelemetryObject_Create(nullptr)};
  EXPECT_EQ(ZAL_Object_AddInt32(unfiltered.get(), "n", 1), 1);
}

}  // namespace
