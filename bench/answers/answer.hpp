// The answer that every candidate builds: four sensors with ten values each, half of them numbers of all sorts.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace bench {

struct Sensor {
  const char* name;
  const char* model;
  const char* state;
  const char* unit;
  bool isOnline;
  std::int32_t readings;
  std::int64_t bytes;
  double load;                    ///< six decimals
  std::array<double, 2> history;  ///< when, in seconds and microseconds, and what
};

inline constexpr std::array<Sensor, 4> kSensors = {{
    {"cabinet-north", "TX-20", "normal", "celsius", true, 35073, 7340032, 0.25, {1700000000.123456, 41.5}},
    {"cabinet-south", "TX-20", "above its limit", "celsius", true, 35071, 7339968, 0.421875, {1700000003.5, 71.25}},
    {"supply \"A\"", "PSU-4", "normal", "volt", true, 902, 188416, 1.5, {1700000004.000017, 230.1}},
    {"door", "CT-1", "unknown", "", false, -1, 4294967296, 0, {1699990000.654321, 0.0625}},
}};

#ifdef BENCH_RAPIDJSON
void answerWithRapidjson(std::string& text);
#endif

}  // namespace bench
