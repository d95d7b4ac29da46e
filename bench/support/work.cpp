#include "support/work.hpp"

#include <cjson/cJSON.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace bench {

namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

/// Six decimals, as the library prints a double.
void addDouble(cJSON* object, const char* key, double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%f", value);
  cJSON_AddRawToObject(object, key, text);
}

/// The envelope of a message, printed; its data is added by `fill`.
template <class Fill>
std::string envelope(Fill fill) {
  timeval now{};
  gettimeofday(&now, nullptr);
  const Json message{cJSON_CreateObject(), cJSON_Delete};
  cJSON_AddNumberToObject(message.get(), "timestamp",
                          static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000.0);
  fill(cJSON_AddObjectToObject(message.get(), "data"));
  const std::unique_ptr<char, decltype(&std::free)> text{cJSON_PrintUnformatted(message.get()), std::free};
  return text.get();
}

Json parse(std::string_view text) {
  Json parsed{cJSON_ParseWithLength(text.data(), text.size()), cJSON_Delete};
  if (!parsed) throw std::runtime_error{"a request is no JSON"};
  return parsed;
}

}  // namespace

const std::string_view kStatusData =
    R"({"hostname":"gateway-17","model":"GX-200","firmware":"4.12.7","uptime":350735,"load":0.420000,)"
    R"("processes":113,"memory":{"total":512000,"free":143360,"available":262144},"temperature":41.500000,)"
    R"("online":true,"region":"eu-central"})";

std::string statusRequest() {
  return R"({"version":1,"timestamp":1700000000.123456,"data":{"requester":"portal","session":"7f3a90c24d1e",)"
         R"("reason":"periodic check of the gateway","limits":{"load":80,"temperature":70},"verbose":false}})";
}

std::string documentRequest(std::size_t size) {
  std::string text = R"({"readings":[)";
  for (int i = 0; text.size() < size; ++i) {
    char reading[128];
    std::snprintf(reading, sizeof reading, R"(%s{"sensor":"sensor-%05d","value":%d.%02d,"unit":"celsius","ok":true})",
                  i == 0 ? "" : ",", i, i % 90, i % 100);
    text += reading;
  }
  return text + "]}";
}

std::string eventsRequest(int count) {
  return R"({"count":)" + std::to_string(count) + "}";
}

std::string answerStatus(std::string_view request) {
  const Json parsed = parse(request);
  const cJSON* data = cJSON_GetObjectItem(parsed.get(), "data");
  const bool isVerbose = cJSON_IsTrue(cJSON_GetObjectItem(data, "verbose")) != 0;
  return envelope([&](cJSON* answer) {
    cJSON_AddStringToObject(answer, "hostname", "gateway-17");
    cJSON_AddStringToObject(answer, "model", "GX-200");
    cJSON_AddStringToObject(answer, "firmware", "4.12.7");
    cJSON_AddNumberToObject(answer, "uptime", 350735);
    addDouble(answer, "load", 0.42);
    cJSON_AddNumberToObject(answer, "processes", isVerbose ? 0 : 113);
    cJSON* memory = cJSON_AddObjectToObject(answer, "memory");
    cJSON_AddNumberToObject(memory, "total", 512000);
    cJSON_AddNumberToObject(memory, "free", 143360);
    cJSON_AddNumberToObject(memory, "available", 262144);
    addDouble(answer, "temperature", 41.5);
    cJSON_AddBoolToObject(answer, "online", 1);
    cJSON_AddStringToObject(answer, "region", "eu-central");
  });
}

std::string answerDocument(std::string_view request) {
  const Json parsed = parse(request);
  const int count = cJSON_GetArraySize(cJSON_GetObjectItem(parsed.get(), "readings"));
  return envelope([&](cJSON* answer) { cJSON_AddNumberToObject(answer, "readings", count); });
}

int eventsWanted(std::string_view request) {
  const Json parsed = parse(request);
  const cJSON* count = cJSON_GetObjectItem(parsed.get(), "count");
  return cJSON_IsNumber(count) != 0 ? count->valueint : 0;
}

std::string eventText(int number) {
  return envelope([&](cJSON* data) {
    cJSON_AddNumberToObject(data, "number", number);
    cJSON_AddStringToObject(data, "source", "temperature sensor of the second cabinet");
    cJSON_AddStringToObject(data, "kind", "threshold");
    addDouble(data, "value", 71.25);
    addDouble(data, "limit", 70.0);
    cJSON_AddStringToObject(data, "message", "the temperature has been above its limit for more than ten minutes");
    cJSON_AddBoolToObject(data, "acknowledged", 0);
  });
}

std::string answer(std::string_view message) {
  const std::string_view request = message.substr(1);
  return static_cast<Kind>(message.front()) == Kind::kStatus ? answerStatus(request) : answerDocument(request);
}

}  // namespace bench
