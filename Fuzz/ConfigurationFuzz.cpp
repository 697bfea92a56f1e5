// Parses any text as a configuration and creates its resources.

#include <cstddef>
#include <string>

#include "Fuzz/Require.h"
#include "Fuzz/Resources.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceFactory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  kiv::SystemLog::setHandler([](std::string_view) {});
  const auto configuration =
      kiv::JSON::read(kiv::Data(std::string(kiv::fuzz::textOf(bytes, size))));
  if (!configuration) return 0;
  kiv::fuzz::exercise(KivResourceFactory::resourcesArrayForResourcesConfig(*configuration));
  return 0;
}
