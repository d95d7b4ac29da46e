// Any text as JSON: what the library prints of it is what cJSON prints, and reads as the same document again.
#include <zal/zal_object.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/fuzz.hpp"
#include "support/json.hpp"

namespace {

using zal::fuzz::Object;
using zal::fuzz::parsedObject;
using zal::fuzz::takeText;

/// What is printed of the document that a text holds.
std::string printedAgain(const std::string& text) {
  const Object object = parsedObject(text);
  FUZZ_CHECK(object != nullptr);
  return takeText(ZAL_Object_DumpOutput(object.get()));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::chooseLogLevel(size);
  const Object object = parsedObject({reinterpret_cast<const char*>(data), size});
  if (!object) return 0;
  const std::string text = takeText(ZAL_Object_DumpOutput(object.get()));
  FUZZ_CHECK(text == zal::fuzz::printed(ZAL_Object_GetInternal(object.get())));
  const std::string again = printedAgain(text);
  // The largest doubles are rounded up to what is none any more, as cJSON does it, and null the next time.
  FUZZ_CHECK(again == text || text.find("e+308") != std::string::npos);
  FUZZ_CHECK(printedAgain(again) == again);
  return 0;
}
