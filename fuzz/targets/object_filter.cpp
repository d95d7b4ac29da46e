// Any text as the filter of a request, and members that are added to an answer under it: what is let in is what
// filterTest lets in.
#include <zal/zal_message.h>
#include <zal/zal_object.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "base/zal_message.hpp"
#include "support/fuzz.hpp"
#include "support/json.hpp"

namespace {

using zal::fuzz::Input;
using zal::fuzz::Object;
using zal::fuzz::Text;

struct MessageDestroy {
  void operator()(ZAL_MessageHandle message) const { ZAL_Message_Destroy(message); }
};
using Message = std::unique_ptr<std::remove_pointer_t<ZAL_MessageHandle>, MessageDestroy>;

/// A container that members are added to.
struct Open {
  ZAL_ObjectHandle handle;
  std::string identifier;
};

class Builder {
 public:
  Builder(ZAL_ObjectHandle top, const char* filter) : filter_{filter}, open_{{top, ""}} {}

  void step(Input& input) {
    const std::uint8_t choice = input.byte();
    const Text key{input.take(choice / 16)};
    const Open at = open_.back();
    const std::string identifier = zal::fuzz::below(at.identifier, key.get());
    if (identifier.size() > zal::fuzz::kUncut) return;
    const bool isStrict = passes(identifier, 1);
    const bool isLoose = passes(identifier, 0);
    FUZZ_CHECK(isLoose || !isStrict);
    FUZZ_CHECK((ZAL_Object_CheckFilter(at.handle, key.get(), 1) != 0) == isStrict);
    switch (choice % 8) {
      case 0:
        return expect(isStrict, ZAL_Object_AddString(at.handle, key.get(), "text"));
      case 1:
        return expect(isStrict, ZAL_Object_AddDouble(at.handle, key.get(), 2.5));
      case 2:
        return expect(isStrict, ZAL_Object_AddBool(at.handle, key.get(), 1));
      case 3:
        return expect(isStrict, ZAL_Object_AddBlob(at.handle, key.get(), key.get(), 1));
      case 4:
        return open(isLoose, ZAL_Object_AddObject(at.handle, key.get()), identifier);
      case 5:
        return open(isLoose, ZAL_Object_AddArray(at.handle, key.get()), identifier);
      case 6:
        return open(ZAL_Object_IsArray(at.handle) != 0, ZAL_Array_AddObject(at.handle), at.identifier);
      default:
        if (open_.size() > 1) open_.pop_back();
    }
  }

 private:
  [[nodiscard]] bool passes(const std::string& identifier, int strictness) const {
    return filterTest(filter_, identifier.c_str(), strictness) != 0;
  }
  static void expect(bool isWanted, int isAdded) { FUZZ_CHECK((isAdded != 0) == isWanted); }
  void open(bool isWanted, ZAL_ObjectHandle handle, const std::string& identifier) {
    FUZZ_CHECK((handle != nullptr) == isWanted);
    if (handle != nullptr) open_.push_back({handle, identifier});
  }

  const char* filter_;
  std::vector<Open> open_;
};

/// The tests alone, with paths and values that need not be those of a filter.
void testValues(Input& input) {
  const Text value = input.text();
  const Text path = input.text();
  const Text identifier = input.text();
  const int strict = queryTestInclude(value.get(), path.get(), identifier.get(), 1);
  const int loose = queryTestInclude(value.get(), path.get(), identifier.get(), 0);
  FUZZ_CHECK(loose != 0 || strict == 0);
  // What is strictly included by a value is excluded by it.
  FUZZ_CHECK((strict != 0) == (queryTestExclude(value.get(), path.get(), identifier.get()) == 0));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr int kSteps = 40;
  zal::fuzz::chooseLogLevel(size);
  Input input{data, size};
  const Text filter = input.text();
  testValues(input);
  const Message message{ZAL_Message_Create()};
  zal::setMessageFilter(message.get(), filter.get());
  const Object top{ZAL_TelemetryObject_Create(message.get())};
  Builder builder{top.get(), filter.get()};
  for (int step = 0; step < kSteps && input.left() != 0; ++step) builder.step(input);
  FUZZ_CHECK(zal::fuzz::parsed(zal::fuzz::takeText(ZAL_Object_DumpOutput(top.get()))) != nullptr);
  return 0;
}
