// Documents as a whole: their header and error members, how an answer is judged, and printing. Adding members, the
// filters, cleaning and ranges have rooms of their own.
#include <sys/time.h>
#include <zal/zal_json.h>
#include <zal/zal_runtime.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string_view>
#include <utility>

#include "base/zal_json/report.hpp"
#include "support/json_node.hpp"
#include "support/memory.hpp"
#include "support/text.hpp"

namespace {

using zal::JsonPtr;
using zal::json::report;

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

bool isEmpty(const char* text) noexcept {
  return text == nullptr || *text == '\0';
}

/// Adds a member of the header.
int stamp(cJSON* object, const char* key, JsonPtr item, const char* failure = "Unable to create JSON string") noexcept {
  if (object != nullptr && zal::isWritable(*object) && zal::addMember(*object, key, std::move(item))) return kSuccess;
  report(failure);
  return kFailure;
}

bool looksLikeObject(std::string_view text) noexcept {
  return text.size() >= 3 && text.starts_with('{') && text.ends_with('}');
}

int stampMetadata(cJSON* object, const char* metadata) noexcept {
  const bool isObject = looksLikeObject(metadata);
  JsonPtr item{isObject ? cJSON_ParseWithOpts(metadata, nullptr, 1) : cJSON_CreateString(metadata)};
  if (isObject && !item) {
    report("Failed to parse metadata into JSON string");
    return kFailure;
  }
  return stamp(object, "metadata", std::move(item), "Unable to metadata to JSON object");
}

/// What a request is answered with; the text is `before`, `text` and `after`.
struct Verdict {
  int status;
  const char* before = "";
  const char* text = "";
  const char* after = "";
};

Verdict judge(const cJSON* answer, const char* request, int errors, const char* message) noexcept {
  if (errors > 0) return {ZAL_JSON_SERVER_ERROR, "Zimta API returned error,check plugin console log"};
  if (!isEmpty(message)) return {ZAL_JSON_BAD_REQUEST, message};
  if (answer == nullptr) return {ZAL_JSON_SERVER_ERROR, "Plugin error - NULL object"};
  if (json_IsEmptyObjects(answer) == 0) return {ZAL_JSON_OK};
  if (isEmpty(request)) return {ZAL_JSON_SERVER_ERROR, "Plugin error - no data"};
  if (std::strchr(request, '?') == nullptr) return {ZAL_JSON_NOT_FOUND, "Invalid resource:", request};
  return {ZAL_JSON_BAD_REQUEST, "Invalid query:", request, ", try help"};
}

bool wantsFormat(int plain) noexcept {
  const char* wanted = plain != 0 ? nullptr : std::getenv("FORMATTED_JSON");
  return wanted != nullptr && *wanted == 'y';
}

}  // namespace

cJSON* json_Initialize(void) noexcept {
  cJSON_Hooks hooks{std::malloc, std::free};
  cJSON_InitHooks(&hooks);
  cJSON* object = cJSON_CreateObject();
  if (object == nullptr) report("Unable to allocate cJSON object");
  return object;
}

void json_Uninitialize(cJSON** node) noexcept {
  if (node != nullptr) cJSON_Delete(std::exchange(*node, nullptr));
}

ssize_t json_FormatTimeval(const struct timeval* time, char* buffer, size_t size) noexcept {
  std::tm parts{};
  if (time == nullptr || gmtime_r(&time->tv_sec, &parts) == nullptr) return -1;
  char date[64];
  const std::size_t length = std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  if (buffer == nullptr || length >= size) return 0;
  std::memcpy(buffer, date, length);
  const int fraction = std::snprintf(buffer + length, size - length, ".%06ldZ", static_cast<long>(time->tv_usec));
  return static_cast<ssize_t>(length) + fraction;
}

int json_GenerateHeader(cJSON* object, const void* /*unused*/, const char* description, const struct timeval* time,
                        uint32_t version, const char* metadata) noexcept {
  struct timeval now = {};
  if (time == nullptr) {
    if (const int result = gettimeofday(&now, nullptr); result != 0) {
      report("Failure gettimeofday", result);
      return result;
    }
    time = &now;
  }
  const auto number = [](double value) { return JsonPtr{cJSON_CreateNumber(value)}; };
  if (version != 0 && stamp(object, "version", number(version)) != kSuccess) return kFailure;
  if (!isEmpty(description) && stamp(object, "description", JsonPtr{cJSON_CreateString(description)}) != kSuccess)
    return kFailure;
  if (stamp(object, "timestamp", number(timevalToDouble(*time))) != kSuccess) return kFailure;
  return isEmpty(metadata) ? kSuccess : stampMetadata(object, metadata);
}

int json_GenerateError(cJSON* object, int code, const char* message) noexcept {
  JsonPtr error{cJSON_CreateObject()};
  const bool isMade = error && cJSON_AddNumberToObject(error.get(), "code", code) != nullptr &&
                      cJSON_AddStringToObject(error.get(), "message", message) != nullptr;
  if (!isMade) error.reset();
  return stamp(object, "error", std::move(error), "unable to add error json object");
}

int json_CheckPluginError(cJSON* answer, const char* request, int errors, const char* message, char* buffer,
                          size_t size) noexcept {
  json_PruneEmptyObjects(answer, nullptr);
  json_PruneArrayRangeObjects(answer, request);

  const Verdict verdict = judge(answer, request, errors, message);
  if (verdict.status != ZAL_JSON_OK && buffer != nullptr) {
    zalstrlcpy(buffer, verdict.before, size);
    zalstrlcat(buffer, verdict.text, size);
    zalstrlcat(buffer, verdict.after, size);
  }
  return verdict.status;
}

int json_Print(cJSON* node, char* buffer, size_t size, int prune, int plain) noexcept {
  if (prune != 0) json_PruneEmptyObjects(node, nullptr);
  const auto length = static_cast<int>(std::min<std::size_t>(size, std::numeric_limits<int>::max()));
  if (cJSON_PrintPreallocated(node, buffer, length, wantsFormat(plain) ? 1 : 0) != 0) return kSuccess;
  zal::copyCut(buffer, "", size);  // what was printed so far need not be terminated
  report("Failure printing JSON to allocated buffer");
  return kFailure;
}
