// Parses any text as JSON and compares the result with simdjson's DOM API.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Fuzz/JSONDifferential.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  if (const auto disagreement = kiv::fuzz::disagreementOnJSON(text)) {
    std::fprintf(stderr, "The text %s.\n", disagreement->c_str());
    std::abort();
  }
  return 0;
}
