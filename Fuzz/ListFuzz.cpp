// Reads any bytes as the saved list, and restores resources from it.

#include <cstddef>
#include <memory>
#include <string>

#include "Fuzz/Require.h"
#include "Fuzz/Resources.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivResource/KivResourceFactory.h"
#include "KivResource/KivResourceStorageModule.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using kiv::fuzz::require;
  kiv::SystemLog::setHandler([](std::string_view) {});
  std::optional<kiv::Error> error;
  const auto list = KivResourceStorageModule::arrayOfDictionaryFromData_error(
      kiv::Data(std::string(kiv::fuzz::textOf(bytes, size))), &error);
  require(!error || list.empty(), "a list that is refused is empty");
  std::vector<std::shared_ptr<KivResource>> resources;
  for (const kiv::Value& entry : list) {
    require(entry.isDictionary(), "a list holds dictionaries alone");
    auto resource = KivResourceFactory::createResourceFromDictionary(entry.dictionary());
    if (resource) resources.push_back(std::move(resource));
  }
  kiv::fuzz::exercise(resources);
  return 0;
}
