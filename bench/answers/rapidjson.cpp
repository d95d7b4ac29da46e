// The answer as a document of RapidJSON.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "answers/answer.hpp"

namespace bench {

void answerWithRapidjson(std::string& text) {
  using rapidjson::StringRef;
  rapidjson::Document answer{rapidjson::kObjectType};
  auto& memory = answer.GetAllocator();
  for (const Sensor& sensor : kSensors) {
    rapidjson::Value member{rapidjson::kObjectType};
    const auto addText = [&](const char* key, const char* value) {
      member.AddMember(StringRef(key), rapidjson::Value{value, memory}, memory);
    };
    addText("model", sensor.model);
    addText("state", sensor.state);
    addText("unit", sensor.unit);
    addText("place", "second floor");
    member.AddMember("online", sensor.isOnline, memory);
    member.AddMember("readings", sensor.readings, memory);
    member.AddMember("bytes", sensor.bytes, memory);
    member.AddMember("load", sensor.load, memory);
    rapidjson::Value history{rapidjson::kArrayType};
    for (const double value : sensor.history) history.PushBack(value, memory);
    member.AddMember("history", history, memory);
    answer.AddMember(rapidjson::Value{sensor.name, memory}, member, memory);
  }
  rapidjson::StringBuffer printed;
  rapidjson::Writer writer{printed};
  answer.Accept(writer);
  text.assign(printed.GetString(), printed.GetSize());
}

}  // namespace bench
