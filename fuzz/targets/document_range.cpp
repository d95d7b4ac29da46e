// Any document and any request: arrays cut to a range, members hidden, what is empty deleted, and the answer judged and
// printed into buffers of any size.
#include <zal/zal_json.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "support/fuzz.hpp"
#include "support/json.hpp"
#include "support/json_node.hpp"

namespace {

using zal::JsonPtr;
using zal::fuzz::Buffer;
using zal::fuzz::Input;
using zal::fuzz::Text;

JsonPtr count(int size) {
  JsonPtr array{cJSON_CreateArray()};
  for (int i = 0; i < size; ++i) cJSON_AddItemToArray(array.get(), cJSON_CreateNumber(i));
  return array;
}

std::vector<int> numbersOf(const cJSON& array) {
  std::vector<int> numbers;
  for (const cJSON* element = array.child; element != nullptr; element = element->next)
    numbers.push_back(element->valueint);
  return numbers;
}

/// What is left of an array is always one run of it.
void cutByAnyRange(int size, const Text& range) {
  const JsonPtr array = count(size);
  applyArrayRange(array.get(), range.get());
  const std::vector<int> left = numbersOf(*array);
  for (std::size_t i = 1; i < left.size(); ++i) FUZZ_CHECK(left[i] == left[i - 1] + 1);
  FUZZ_CHECK(left.empty() || (left.front() >= 0 && left.back() < size));
}

/// Of a well-formed range it is known which one.
void cutByRange(int size, int first, int length) {
  const JsonPtr array = count(size);
  applyArrayRange(array.get(), (std::to_string(first) + ':' + std::to_string(length)).c_str());
  const std::vector<int> left = numbersOf(*array);
  FUZZ_CHECK(static_cast<int>(left.size()) == std::clamp(size - first, 0, length));
  FUZZ_CHECK(left.empty() || left.front() == first);

  const JsonPtr end = count(size);
  applyArrayRange(end.get(), (':' + std::to_string(length)).c_str());
  FUZZ_CHECK(static_cast<int>(numbersOf(*end).size()) == std::min(size, length));
}

bool hasEmptyContainer(const cJSON& node) {
  if (zal::isContainer(node) && node.child == nullptr) return true;
  for (const cJSON* child = node.child; child != nullptr; child = child->next)
    if (hasEmptyContainer(*child)) return true;
  return false;
}

/// After cleaning, only the document itself may be empty.
void clean(cJSON& document) {
  const bool isEmpty = json_IsEmptyObjects(&document) != 0;
  json_PruneEmptyObjects(&document, nullptr);
  FUZZ_CHECK((json_IsEmptyObjects(&document) != 0) == isEmpty);
  FUZZ_CHECK(!zal::isContainer(document) || isEmpty == (document.child == nullptr));
  FUZZ_CHECK(document.child == nullptr || !hasEmptyContainer(document));
}

void print(cJSON& document, std::size_t missing) {
  constexpr std::size_t kAskedMore = 5;
  const std::string text = zal::fuzz::printed(&document);
  const Buffer enough{text.size() + 1 + kAskedMore};
  FUZZ_CHECK(json_Print(&document, enough.data(), enough.size(), 0, 1) == 0);
  FUZZ_CHECK(enough.text() == text);
  const Buffer small{text.size() - std::min(missing, text.size())};
  if (json_Print(&document, small.data(), small.size(), 0, 1) == 0) {
    FUZZ_CHECK(small.text() == text);
  } else if (small.size() != 0) {
    FUZZ_CHECK(small.text().empty());
  }
}

void judge(cJSON& answer, const Text& request, const Text& message, std::size_t size) {
  const Buffer text{size};
  const int status = json_CheckPluginError(&answer, request.get(), 0, message.get(), text.data(), size);
  const bool isGood = message.size() == 0 && json_IsEmptyObjects(&answer) == 0;
  FUZZ_CHECK((status == ZAL_JSON_OK) == isGood);
  if (status != ZAL_JSON_OK && size != 0) static_cast<void>(text.text());
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const std::uint8_t elements = input.byte();
  const std::uint8_t first = input.byte();
  const std::uint8_t length = input.byte();
  const Text range = input.text();
  const Text path = input.text();
  const Text request = input.text();
  const Text message = input.text();
  cutByAnyRange(elements, range);
  cutByRange(elements, first, length);

  const JsonPtr document = zal::fuzz::parsed(input.rest());
  if (!document) return 0;
  const JsonPtr copy{cJSON_Duplicate(document.get(), 1)};
  pruneRangePath(copy.get(), path.get(), range.get());
  json_NullObject(path.get(), copy.get());
  clean(*copy);
  print(*copy, first);
  judge(*document, request, message, length);
  return 0;
}
