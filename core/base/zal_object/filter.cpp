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
#include "support/text.hpp"
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

std::string_view orEmpty(const char* text) noexcept {
  return text == nullptr ? "" : text;
}

// A terminator follows each text that is given to these tests.

bool comparePath(std::string_view path, std::string_view identifier, Strictness strictness) noexcept {
  ZAL_LOG(ZAL_LOG_TRACE, "%s() ======> Testing query path:%s\n", __func__, path.data());
  const Match match = compare(path, identifier, strictness);
  ZAL_LOG(ZAL_LOG_TRACE, "%s()\t\t%s filter %s - PATH filter:[%s] id:[%s] len:%ld\n", __func__, nameOf(strictness),
          nameOf(match), path.data(), identifier.data(), match.compared);
  return match.passes;
}

/// Whether `accept` holds for one of the paths that an include or exclude value names below `path`.
template <class Accept>
bool anyPath(std::string_view value, std::string_view path, Accept accept) noexcept {
  zal::CutText<kReferenceSize> reference;
  reference.append(path);
  reference.append("/");
  const std::size_t start = reference.length();
  for (std::string_view rest = value.substr(0, kValueSize - 1); !rest.empty();) {
    const std::string_view token = rest.substr(0, rest.find('+'));
    rest.remove_prefix(std::min(token.size() + 1, rest.size()));
    if (token.empty()) continue;
    reference.shorten(start);
    reference.append(token);
    const bool isBelowTop = reference.text()[0] == '/';
    if (accept(reference.view().substr(isBelowTop ? 1 : 0))) return true;
  }
  return false;
}

bool passesInclude(std::string_view include, std::string_view path, std::string_view identifier,
                   Strictness strictness) noexcept {
  constexpr const char* kName = "queryTestInclude";
  return anyPath(include, path, [&](std::string_view reference) {
    ZAL_LOG_AS(ZAL_LOG_DEBUG, kName, "%s() ======> Testing include query path:%s\n", kName, reference.data());
    const Match match = compare(reference, identifier, strictness);
    if (match.passes) {
      ZAL_LOG_AS(ZAL_LOG_DEBUG, kName, "%s()\t\t%s filter SUCCESS - INCLUDE query filter:[%s] id:[%s] len:%ld\n", kName,
                 nameOf(strictness), reference.data(), identifier.data(), match.compared);
    } else {
      ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s()\t\t%s filter FAIL - INCLUDE query filter:[%s] id:[%s]\n", kName,
                 nameOf(strictness), reference.data(), identifier.data());
    }
    return match.passes;
  });
}

bool passesExclude(std::string_view exclude, std::string_view path, std::string_view identifier) noexcept {
  constexpr const char* kName = "queryTestExclude";
  const char* strict = nameOf(Strictness::kStrict);
  const bool isExcluded = anyPath(exclude, path, [&](std::string_view reference) {
    ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s() ======> Testing exclude query path:%s\n", kName, reference.data());
    const Match match = compare(reference, identifier, Strictness::kStrict);
    if (match.passes) {
      ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s()\t\t%s filter %s - EXCLUDE query filter:[%s] id:[%s] len:%ld\n", kName,
                 strict, "FAIL", reference.data(), identifier.data(), match.compared);
    }
    return match.passes;
  });
  if (isExcluded) return false;
  ZAL_LOG_AS(ZAL_LOG_TRACE, kName, "%s()\t\t%s filter %s - EXCLUDE query filter:[%s] id:[%s]\n", kName, strict,
             "SUCCESS", exclude.data(), identifier.data());
  return true;
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
  ZAL_UriParser_GetPath(uri.get(), pathText_, sizeof pathText_);
  hasInclude_ = ZAL_UriParser_FindTagValue(uri.get(), "include", includeText_, sizeof includeText_) != 0;
  hasExclude_ = ZAL_UriParser_FindTagValue(uri.get(), "exclude", excludeText_, sizeof excludeText_) != 0;
  path_ = pathText_;
  include_ = includeText_;
  exclude_ = excludeText_;
}

bool Filter::passes(std::string_view identifier, Strictness strictness) const noexcept {
  if (form_ == Form::kUnreadable) reportUnreadable();
  if (form_ != Form::kUri) return true;

  ZAL_LOG_AS(ZAL_LOG_TRACE, "filterTest", "%s()\t\turi:[%s]\n", "filterTest", text_);
  if (!path_.empty() && !comparePath(path_, identifier, strictness)) return false;
  if (hasInclude_ && !passesInclude(include_, path_, identifier, strictness)) return false;
  return !hasExclude_ || passesExclude(exclude_, path_, identifier);
}

}  // namespace zal::object

int filterTest(const char* filter, const char* identifier, int strictness) noexcept {
  const zal::object::Filter parsed{filter};
  return parsed.passes(orEmpty(identifier), zal::strictnessOf(strictness)) ? 1 : 0;
}

int queryTestInclude(const char* include, const char* path, const char* identifier, int strictness) noexcept {
  const bool passes =
      passesInclude(orEmpty(include), orEmpty(path), orEmpty(identifier), zal::strictnessOf(strictness));
  return passes ? 1 : 0;
}

int queryTestExclude(const char* exclude, const char* path, const char* identifier) noexcept {
  return passesExclude(orEmpty(exclude), orEmpty(path), orEmpty(identifier)) ? 1 : 0;
}
