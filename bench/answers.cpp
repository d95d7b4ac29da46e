// Answers: 40 values built, printed and freed; and a request parsed.
#include "answers/answer.hpp"

#include <cjson/cJSON.h>
#include <zal/zal_object.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "suites.hpp"
#include "support/timing.hpp"
#include "support/work.hpp"

namespace bench {

namespace {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;
using Text = std::unique_ptr<char, decltype(&std::free)>;

void answerWithCjson(std::string& text) {
  const Json answer{cJSON_CreateObject(), cJSON_Delete};
  for (const Sensor& sensor : kSensors) {
    cJSON* const member = cJSON_AddObjectToObject(answer.get(), sensor.name);
    cJSON_AddStringToObject(member, "model", sensor.model);
    cJSON_AddStringToObject(member, "state", sensor.state);
    cJSON_AddStringToObject(member, "unit", sensor.unit);
    cJSON_AddStringToObject(member, "place", "second floor");
    cJSON_AddBoolToObject(member, "online", sensor.isOnline ? 1 : 0);
    cJSON_AddNumberToObject(member, "readings", sensor.readings);
    cJSON_AddNumberToObject(member, "bytes", static_cast<double>(sensor.bytes));
    char load[32];
    std::snprintf(load, sizeof load, "%f", sensor.load);
    cJSON_AddRawToObject(member, "load", load);
    cJSON* const history = cJSON_AddArrayToObject(member, "history");
    for (const double value : sensor.history) cJSON_AddItemToArray(history, cJSON_CreateNumber(value));
  }
  text = Text{cJSON_PrintUnformatted(answer.get()), std::free}.get();
}

void answerWithZal(std::string& text) {
  ZAL_ObjectHandle const answer = ZAL_Object_Create();
  for (const Sensor& sensor : kSensors) {
    ZAL_ObjectHandle const member = ZAL_Object_AddObject(answer, sensor.name);
    ZAL_Object_AddString(member, "model", sensor.model);
    ZAL_Object_AddString(member, "state", sensor.state);
    ZAL_Object_AddString(member, "unit", sensor.unit);
    ZAL_Object_AddString(member, "place", "second floor");
    ZAL_Object_AddBool(member, "online", sensor.isOnline ? 1 : 0);
    ZAL_Object_AddInt32(member, "readings", sensor.readings);
    ZAL_Object_AddInt64(member, "bytes", sensor.bytes);
    ZAL_Object_AddDouble(member, "load", sensor.load);
    ZAL_ObjectHandle const history = ZAL_Object_AddArray(member, "history");
    for (const double value : sensor.history) ZAL_Array_AddNumber(history, value);
  }
  text = Text{ZAL_Object_DumpOutput(answer), std::free}.get();
  ZAL_Object_Destroy(answer);
}

template <class Make>
double answerTime(Make make, int count) {
  std::string text;
  return nanosecondsOf(count, [&] { make(text); }) / 1e3;
}

bool hasSameValues(const std::string& one, const std::string& other) {
  const Json first{cJSON_Parse(one.c_str()), cJSON_Delete};
  const Json second{cJSON_Parse(other.c_str()), cJSON_Delete};
  return cJSON_Compare(first.get(), second.get(), 1) != 0;
}

void measureBuilding(const Settings& settings, Report& report) {
  const int count = scaled(4000, settings.effort);
  std::string expected;
  answerWithCjson(expected);
  std::vector<Candidate> candidates = {{"cJSON", [=] { return answerTime(answerWithCjson, count); }}};
  const auto offer = [&](const char* name, auto make, auto isRight) {
    std::string text;
    make(text);
    if (!isRight(text)) throw std::runtime_error{name + (" answers " + text)};
    candidates.push_back({name, [=] { return answerTime(make, count); }});
  };
  offer("zal", answerWithZal, [&](const std::string& text) { return text == expected; });
#ifdef BENCH_RAPIDJSON
  offer("RapidJSON", answerWithRapidjson, [&](const std::string& text) { return hasSameValues(text, expected); });
#endif
  report.add({"answer of 40 values, built, printed and freed", "us", settings.rounds}, candidates);
}

void measureParsing(const Settings& settings, Report& report) {
  const int count = scaled(10000, settings.effort);
  const std::string request = statusRequest();
  report.add(
      {"request of 200 bytes, parsed and freed", "us", settings.rounds},
      {{"cJSON", [&] { return nanosecondsOf(count, [&] { cJSON_Delete(cJSON_Parse(request.c_str())); }) / 1e3; }},
       {"zal", [&] {
          return nanosecondsOf(count,
                               [&] { ZAL_Object_Destroy(ZAL_Object_CreateFromJson(request.data(), request.size())); }) /
                 1e3;
        }}});
}

}  // namespace

void measureAnswers(const Settings& settings, Report& report) {
  measureBuilding(settings, report);
  measureParsing(settings, report);
}

}  // namespace bench
