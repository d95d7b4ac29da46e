// jsonFilterTest and what decides over an addition by it: the identifier of a member that does not exist yet, whose
// parent is searched in the document. The object side, with its log lines and its other rules, is zal_object.
#include "base/zal_json/filter.hpp"

#include <zal/zal_json.h>
#include <zal/zal_object.h>
#include <zal/zal_uri.h>

#include <cstring>
#include <string_view>

#include "base/zal_json/report.hpp"
#include "support/json_node.hpp"
#include "support/json_walk.hpp"
#include "support/member_path.hpp"

namespace zal::json {
namespace {

constexpr std::size_t kValueSize = 512;

/// One filter text, split; of its parts only those that decide are read.
class Filter {
 public:
  explicit Filter(const char* text) noexcept {
    if (text == nullptr || *text == '\0' || std::strcmp(text, "/") == 0) return;
    if (std::string_view{text}.starts_with("//")) {
      form_ = Form::kNothing;
      return;
    }
    vorn_uri_parts parts;
    vorn_uri_parse(text, &parts);
    std::memcpy(path_, parts.path, sizeof path_);
    form_ = formOf(text);
  }

  [[nodiscard]] bool passesEverything() const noexcept { return form_ == Form::kEverything; }

  [[nodiscard]] bool passes(const char* identifier, Strictness strictness) const noexcept {
    switch (form_) {
      case Form::kEverything:
        return true;
      case Form::kNothing:
        return false;
      case Form::kInclude:
        return queryTestInclude(value_, path_, identifier, static_cast<int>(strictness)) != 0;
      case Form::kExclude:
        return queryTestExclude(value_, path_, identifier) != 0;
      case Form::kPath:
        return passesPath(identifier, strictness);
    }
    return true;
  }

 private:
  enum class Form : std::uint8_t { kEverything, kNothing, kInclude, kExclude, kPath };

  Form formOf(const char* text) noexcept {
    if (vorn_uri_find_tagvalue(text, "include", value_, sizeof value_) != 0) return Form::kInclude;
    if (vorn_uri_find_tagvalue(text, "exclude", value_, sizeof value_) != 0) return Form::kExclude;
    return path_[0] == '\0' ? Form::kEverything : Form::kPath;
  }

  [[nodiscard]] bool passesPath(std::string_view identifier, Strictness strictness) const noexcept {
    const std::string_view path{path_};
    if (strictness == Strictness::kStrict) return isAtOrBelow(path, identifier);
    return identifier.starts_with(path) || path.starts_with(identifier);
  }

  Form form_ = Form::kEverything;
  char path_[sizeof vorn_uri_parts::path] = {};
  char value_[kValueSize] = {};  ///< of the include or exclude part
};

/// Notes how many children of each node are still looked at.
using Search = JsonWalk<const cJSON, JsonOrder::kNewestFirst, std::size_t>;

/// Looks for `wanted` among the newest `width` children of each node. At the end it stands there, or has left the
/// start. Returns whether it has seen all that it passed.
bool run(Search& search, const cJSON& wanted, std::size_t width) {
  bool hasSeenAll = true;
  while (!search.atEnd() && &search.node() != &wanted) {
    const cJSON* child = search.nextChild();
    const bool isBeyond = child != nullptr && search.note() == 0;
    hasSeenAll = hasSeenAll && !isBeyond;
    if (child == nullptr || isBeyond) {
      search.leave();
      continue;
    }
    --search.note();
    if (isWritable(*child)) search.enter(*child, width);
  }
  return hasSeenAll;
}

MemberPath pathOf(const Search& found) {
  MemberPath path;
  for (std::size_t level = 1; level < found.levels().size(); ++level) path.enter(found.levels()[level].node->string);
  return path;
}

/// The path of `parent` below `top`; empty when it is the top or does not lie there.
///
/// A node of cJSON does not know its parent. Documents are mostly built by adding to what was made lately, so the
/// newest are looked at first, and few of each node before many: also where several lists grow side by side, an
/// addition does not visit what they hold.
MemberPath findPath(const cJSON& top, const cJSON& parent) {
  constexpr std::size_t kFew = 4;
  constexpr std::size_t kWidening = 8;
  for (std::size_t width = kFew;; width *= kWidening) {
    Search search{top, width};
    const bool hasSeenAll = run(search, parent, width);
    if (!search.atEnd() || hasSeenAll) return pathOf(search);
  }
}

}  // namespace

bool passes(const Place& place, Strictness strictness) noexcept {
  if (place.key == nullptr) return true;
  const Filter filterB{place.filterB};
  const Filter filterA{place.filterA};
  if (filterA.passesEverything() && filterB.passesEverything()) return true;
  return walking(false, [&] {
    const bool isBelow = place.top != nullptr && place.parent != nullptr;
    const MemberPath path = isBelow ? findPath(*place.top, *place.parent) : MemberPath{};
    const Identifier identifier{path.text(), place.key};
    return filterB.passes(identifier.text(), strictness) && filterA.passes(identifier.text(), strictness);
  });
}

}  // namespace zal::json

int jsonFilterTest(const char* filter, const char* identifier, int strictness) noexcept {
  const zal::json::Filter parsed{filter};
  return parsed.passes(identifier == nullptr ? "" : identifier, zal::strictnessOf(strictness)) ? 1 : 0;
}

int json_CheckFilter(cJSON* parent, const char* filterA, const char* filterB, cJSON* top, const char* key) noexcept {
  return zal::json::passes({parent, filterA, filterB, top, key}, zal::Strictness::kStrict) ? 1 : 0;
}

int json_CheckFilterLoose(cJSON* parent, const char* filterA, const char* filterB, cJSON* top,
                          const char* key) noexcept {
  return zal::json::passes({parent, filterA, filterB, top, key}, zal::Strictness::kLoose) ? 1 : 0;
}
