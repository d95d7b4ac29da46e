// Any two texts as the filters of a request, and a document that is built under them: what is let in is what
// jsonFilterTest lets in.
#include <zal/zal_json.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/fuzz.hpp"
#include "support/json.hpp"

namespace {

using zal::fuzz::Input;
using zal::fuzz::Text;

struct Open {
  cJSON* node;
  std::string identifier;
};

class Builder {
 public:
  Builder(cJSON* top, const char* filterA, const char* filterB)
      : top_{top}, filterA_{filterA}, filterB_{filterB}, open_{{top, ""}} {}

  void step(Input& input) {
    const std::uint8_t choice = input.byte();
    const Text key{input.take(choice / 16)};
    const Open at = open_.back();
    const std::string identifier = zal::fuzz::below(at.identifier, key.get());
    if (identifier.size() > zal::fuzz::kUncut) return;
    const bool isStrict = passes(identifier, 1);
    FUZZ_CHECK((json_CheckFilter(at.node, filterA_, filterB_, top_, key.get()) != 0) == isStrict);
    switch (choice % 8) {
      case 0:
        return expect(isStrict, json_AddString(at.node, filterA_, filterB_, top_, key.get(), key.get()));
      case 1:
        return expect(isStrict, json_AddNumber(at.node, filterA_, filterB_, top_, key.get(), 2.5));
      case 2:
        return expect(isStrict, json_AddStringOrNull(at.node, filterA_, filterB_, top_, key.get(), key.get()));
      case 3:
        return expect(isStrict, json_AddCountingNumberOrNull(at.node, filterA_, filterB_, top_, key.get(), choice));
      case 4:
        return open(json_AddObject(at.node, filterA_, filterB_, top_, key.get()), identifier);
      case 5:
        return open(json_AddArray(at.node, filterA_, filterB_, top_, key.get()), identifier);
      case 6:
        if (cJSON_IsArray(at.node)) open_.push_back({json_AddArrayElement(at.node), at.identifier});
        return;
      default:
        if (open_.size() > 1) open_.pop_back();
    }
  }

 private:
  [[nodiscard]] bool passes(const std::string& identifier, int strictness) const {
    return jsonFilterTest(filterA_, identifier.c_str(), strictness) != 0 &&
           jsonFilterTest(filterB_, identifier.c_str(), strictness) != 0;
  }
  static void expect(bool isWanted, const cJSON* added) { FUZZ_CHECK((added != nullptr) == isWanted); }
  void open(cJSON* container, const std::string& identifier) {
    expect(passes(identifier, 0), container);
    if (container != nullptr) open_.push_back({container, identifier});
  }

  cJSON* top_;
  const char* filterA_;
  const char* filterB_;
  std::vector<Open> open_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int kSteps = 40;
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const Text filterA = input.text();
  const Text filterB = input.text();
  cJSON* top = json_Initialize();
  Builder builder{top, filterA.get(), filterB.get()};
  for (int step = 0; step < kSteps && input.left() != 0; ++step) builder.step(input);
  FUZZ_CHECK(zal::fuzz::parsed(zal::fuzz::printed(top)) != nullptr);
  json_Uninitialize(&top);
  return 0;
}
