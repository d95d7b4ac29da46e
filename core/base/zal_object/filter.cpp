// The object side of the request filters: which members of an answer were asked for. Nothing here knows the tree: the
// tests work on texts. Walking a ready-made tree with them is the job of prune.cpp.
#include "base/zal_object/filter.hpp"

#include <zal/zal_object.h>
#include <zal/zal_runtime.h>
#include <zal/zal_uri.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "support/error_report.hpp"
#include "support/log.hpp"
#include "support/uri.hpp"

namespace zal::object {

constinit const Filter kEverything;

}  // namespace zal::object

namespace {

using zal::isAtOrBelow;
using zal::Strictness;

constexpr std::size_t kValueSize = 512;
constexpr std::size_t kReferenceSize = 1536;

struct Match {
  bool passes;
  long compared;  ///< characters
};

Match compare(std::string_view reference, std::string_view identifier, Strictness strictness) noexcept {
  if (strictness == Strictness::kStrict)
    return {isAtOrBelow(reference, identifier), static_cast<long>(reference.size())};
  return {isAtOrBelow(reference, identifier) || isAtOrBelow(identifier, reference),
          static_cast<long>(std::min(reference.size(), identifier.size()))};
}

const char* nameOf(Strictness strictness) noexcept {
  return strictness == Strictness::kStrict ? "STRICT" : "LOOSE";
}

const char* nameOf(const Match& match) noexcept {
  return match.passes ? "SUCCESS" : "FAIL";
}

const char* orEmpty(const char* text) noexcept {
  return text == nullptr ? "" : text;
}

bool comparePath(const char* path, const char* identifier, Strictness strictness) noexcept {
  ZAL_LOG(ZAL_LOG_TRACE, "%s() ======> Testing query path:%s\n", __func__, path);
  const Match match = compare(path, identifier, strictness);
  ZAL_LOG(ZAL_LOG_TRACE, "%s()\t\t%s filter %s - PATH filter:[%s] id:[%s] len:%ld\n", __func__, nameOf(strictness),
          nameOf(match), path, identifier, match.compared);
  return match.passes;
}

/// Whether `accept` holds for one of the paths that an include or exclude value names below `path`.
template <class Accept>
bool anyPath(const char* value, const char* path, Accept accept) noexcept {
  char tokens[kValueSize];
  zalstrlcpy(tokens, orEmpty(value), sizeof tokens);
  char* rest = nullptr;
  for (const char* token = strtok_r(tokens, "+", &rest); token != nullptr; token = strtok_r(nullptr, "+", &rest)) {
    char reference[kReferenceSize];
    zalstrlcpy(reference, orEmpty(path), sizeof reference);
    zalstrlcat(reference, "/", sizeof reference);
    zalstrlcat(reference, token, sizeof reference);
    if (accept(reference[0] == '/' ? reference + 1 : reference)) return true;
  }
  return false;
}

void reportUnreadable() noexcept {
  constexpr int kReportedLine = 401;
  zal::reportError(ZAL_LOG_MODULE, kReportedLine, "Failure parsing URI");
  ZAL_LOG_AS(ZAL_LOG_DEBUG, "filterTest", "%s() error!\n", "filterTest");
}

}  // namespace

namespace zal::object {

Filter::Filter(const char* text) noexcept : text_{text} {
  if (text == nullptr || *text == '\0' || std::strcmp(text, "/") == 0) return;
  const UriPtr uri{ZAL_UriParser_Create(text)};
  form_ = uri ? Form::kUri : Form::kUnreadable;
  if (!uri) return;
  ZAL_UriParser_GetPath(uri.get(), path_, sizeof path_);
  hasInclude_ = ZAL_UriParser_FindTagValue(uri.get(), "include", include_, sizeof include_) != 0;
  hasExclude_ = ZAL_UriParser_FindTagValue(uri.get(), "exclude", exclude_, sizeof exclude_) != 0;
}

bool Filter::passes(const char* identifier, Strictness strictness) const noexcept {
  if (form_ == Form::kUnreadable) reportUnreadable();
  if (form_ != Form::kUri) return true;

  ZAL_LOG_AS(ZAL_LOG_TRACE, "filterTest", "%s()\t\turi:[%s]\n", "filterTest", text_);
  if (path_[0] != '\0' && !comparePath(path_, identifier, strictness)) return false;
  if (hasInclude_ && queryTestInclude(include_, path_, identifier, static_cast<int>(strictness)) == 0) return false;
  return !hasExclude_ || queryTestExclude(exclude_, path_, identifier) != 0;
}

}  // namespace zal::object

int filterTest(const char* filter, const char* identifier, int strictness) noexcept {
  const zal::object::Filter parsed{filter};
  return parsed.passes(orEmpty(identifier), zal::strictnessOf(strictness)) ? 1 : 0;
}

int queryTestInclude(const char* include, const char* path, const char* identifier, int strictness) noexcept {
  const Strictness how = zal::strictnessOf(strictness);
  const char* id = orEmpty(identifier);
  const auto accept = [&](const char* reference) {
    constexpr const char* kName = "queryTestInclude";
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kName, "%s() ======> Testing include query path:%s\n", kName, reference);
    const auto match = compare(reference, id, how);
    if (match.passes) {
      ZAL_LOG_AS(ZAL_LOG_DEBUG, kName, "%s()\t\t%s filter SUCCESS - INCLUDE query filter:[%s] id:[%s] len:%ld\n", kName,
                 nameOf(how), reference, id, match.compared);
    } else {
      ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s()\t\t%s filter FAIL - INCLUDE query filter:[%s] id:[%s]\n", kName,
                 nameOf(how), reference, id);
    }
    return match.passes;
  };
  return anyPath(include, path, accept) ? 1 : 0;
}

int queryTestExclude(const char* exclude, const char* path, const char* identifier) noexcept {
  constexpr const char* kName = "queryTestExclude";
  const char* strict = nameOf(Strictness::kStrict);
  const char* id = orEmpty(identifier);
  const auto accept = [&](const char* reference) {
    ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s() ======> Testing exclude query path:%s\n", kName, reference);
    const auto match = compare(reference, id, Strictness::kStrict);
    if (match.passes) {
      ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s()\t\t%s filter %s - EXCLUDE query filter:[%s] id:[%s] len:%ld\n", kName,
                 strict, "FAIL", reference, id, match.compared);
    }
    return match.passes;
  };
  if (anyPath(exclude, path, accept)) return 0;
  ZAL_LOG(ZAL_LOG_TRACE, "%s()\t\t%s filter %s - EXCLUDE query filter:[%s] id:[%s]\n", kName, strict, "SUCCESS",
          orEmpty(exclude), id);
  return 1;
}
