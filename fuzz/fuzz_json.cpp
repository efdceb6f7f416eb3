// Any text: the parser refuses it, or gives a document that is written and read
// back as the same document.
#include "base/JSON.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vorlane;
  JSONValue value;
  try {
    value = parseJSON(std::string_view(reinterpret_cast<const char*>(data), size));
  } catch (const JSONParseFailure&) {
    return 0;
  }
  const auto written = writeJSON(value);
  const auto again = parseJSON(written);
  if (again != value || writeJSON(again) != written) std::abort();
  return 0;
}
