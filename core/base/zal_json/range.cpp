// Ranges: which run of an array a request asked for. A path leads through the document to the arrays that are cut.
#include <zal/zal_json.h>
#include <zal/zal_runtime.h>
#include <zal/zal_uri.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

#include "base/zal_json/find.hpp"
#include "base/zal_json/report.hpp"
#include "support/json_node.hpp"
#include "support/memory.hpp"

namespace {

using zal::JsonPtr;

constexpr std::size_t kPathLength = 511;   // characters of a path that are read
constexpr std::size_t kRangeLength = 127;  // the same of a range
constexpr std::size_t kIncludeSize = 512;
constexpr std::size_t kRangeSize = 64;  // of the range part of a request
constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

/// The number that a text begins with, the largest for one that does not fit. Nothing where no digit stands first.
std::optional<std::size_t> leadingNumber(std::string_view text) noexcept {
  std::size_t number = 0;
  const auto error = std::from_chars(text.data(), text.data() + text.size(), number).ec;
  if (error == std::errc::invalid_argument) return std::nullopt;
  return error == std::errc{} ? number : std::numeric_limits<std::size_t>::max();
}

/// What is kept of an array: `count` elements from index `first` on, or the last `count`.
struct Run {
  std::size_t first;
  std::size_t count;
  bool isFromEnd = false;
};

std::optional<Run> readRun(std::string_view range) noexcept {
  const std::size_t colon = range.find(':');
  const auto before = leadingNumber(range.substr(0, colon));
  if (colon == std::string_view::npos) return before ? std::optional{Run{*before, 1}} : std::nullopt;
  const auto after = leadingNumber(range.substr(colon + 1));
  if (before) return Run{*before, after.value_or(kAll)};
  return after ? std::optional{Run{0, *after, true}} : std::nullopt;
}

/// Deletes at most `count` elements, of which `element` is the first.
void erase(cJSON& array, cJSON* element, std::size_t count) noexcept {
  for (; element != nullptr && count != 0; --count) {
    cJSON* next = element->next;
    const JsonPtr erased{cJSON_DetachItemViaPointer(&array, element)};
    element = next;
  }
}

void cut(cJSON& array, Run run) noexcept {
  std::size_t size = 0;
  for (const cJSON* element = array.child; element != nullptr; element = element->next) ++size;
  if (run.isFromEnd) run.first = size - std::min(run.count, size);
  erase(array, array.child, run.first);

  cJSON* element = array.child;
  for (std::size_t kept = 0; kept < run.count && element != nullptr; ++kept) element = element->next;
  erase(array, element, kAll);
}

std::string_view skipSlashes(std::string_view path) noexcept {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

/// Takes the first key off a path that does not begin with "/"; neither does what is left.
std::string_view takeStep(std::string_view& path) noexcept {
  const std::string_view step = path.substr(0, path.find('/'));
  path = skipSlashes(path.substr(step.size()));
  return step;
}

void reportNoSuchPath() noexcept {
  constexpr int kReportedLine = 486;
  zal::json::report("error given path does not match given object tree", -1, kReportedLine);
}

void prunePath(cJSON* node, std::string_view path, const char* range) noexcept;

/// Goes on in each element that has the member; false when none has.
bool pruneElements(const cJSON& array, std::string_view step, std::string_view rest, const char* range) noexcept {
  bool isFound = false;
  for (const cJSON* element = array.child; element != nullptr; element = element->next) {
    cJSON* member = zal::isReference(*element) ? nullptr : zal::json::findMember(*element, step);
    if (member == nullptr) continue;
    isFound = true;
    prunePath(member, rest, range);
  }
  return isFound;
}

/// Recurses at arrays only, and so no deeper than the 256 steps that a path can have.
void prunePath(cJSON* node, std::string_view path, const char* range) noexcept {
  while (node != nullptr && !path.empty()) {
    const std::string_view step = takeStep(path);
    if (zal::isReference(*node)) {
      node = nullptr;
    } else if (!cJSON_IsArray(node)) {
      node = zal::json::findMember(*node, step);
    } else if (pruneElements(*node, step, path, range) || path.empty()) {
      return;  // done in the elements, or the path ends at an array that it did not lead to
    }
  }
  if (node == nullptr) {
    reportNoSuchPath();
  } else {
    applyArrayRange(node, range);
  }
}

}  // namespace

void applyArrayRange(cJSON* array, const char* range) noexcept {
  if (!cJSON_IsArray(array) || zal::isReference(*array) || range == nullptr) return;
  if (const auto run = readRun({range, strnlen(range, kRangeLength)})) cut(*array, *run);
}

void pruneRangePath(cJSON* node, const char* path, const char* range) noexcept {
  if (node == nullptr || path == nullptr || range == nullptr || *range == '\0') return;
  prunePath(node, skipSlashes({path, strnlen(path, kPathLength)}), range);
}

void json_PruneArrayRangeObjects(cJSON* node, const char* request) noexcept {
  char range[kRangeSize];
  if (node == nullptr || vorn_uri_find_tagvalue(request, "range", range, sizeof range) == 0) return;
  vorn_uri_parts parts;
  vorn_uri_parse(request, &parts);

  char include[kIncludeSize];
  if (vorn_uri_find_tagvalue(request, "include", include, sizeof include) == 0) {
    pruneRangePath(node, parts.path, range);
    return;
  }
  char* rest = nullptr;
  for (const char* token = strtok_r(include, "+", &rest); token != nullptr; token = strtok_r(nullptr, "+", &rest)) {
    char path[kPathLength + 1];
    zalstrlcpy(path, parts.path, sizeof path);
    zalstrlcat(path, token, sizeof path);
    pruneRangePath(node, path, range);
  }
}
