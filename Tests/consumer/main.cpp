// A host that uses an installed framework. It creates a resource and finds the installed packaged
// resources.

#include <iostream>
#include <string>
#include <string_view>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResource.h"
#include "Platform/Foundation/JSON.h"

namespace {

constexpr std::string_view text = R"({"items": [{
  "engine": "eco_standard", "name": "House banner", "type": "banner", "banner_id": "house",
  "priority": 1, "updated": 1, "market_url": "https://host.example/",
  "image_728x90": "banners/kivresource-placeholder-728x90.png"}]})";

int fail(std::string_view what) {
  std::cerr << "consumer: " << what << '\n';
  return 1;
}

}  // namespace

/// The argument is the install prefix of the framework.
int main(int argc, char** argv) {
  if (argc != 2) return fail("takes one argument, the prefix");
  const std::string prefix = std::string(argv[1]) + "/";

  static_assert(consumersJSON == 1);
  const auto config = kiv::JSON::read(text);
  if (!config) return fail("the configuration does not read");
  const auto resources = KivResourceFactory::resourcesArrayForResourcesConfig(*config);
  if (resources.size() != 1) return fail("the factory made no resource");
  const auto links = resources.front()->missingFilesLinks();
  if (links.size() != 1) return fail("the banner lacks no file");

  const auto path =
      KivResourceStorageModule::pathToResourceFileWithName(kiv::path::lastPathComponent(links[0]));
  if (!path) return fail("the packaged banner was not found");
  if (!path->starts_with(prefix))
    return fail("the packaged banner is not the installed one: " + *path);
  std::cout << KivResourceVersionString << ": " << *path << '\n';
}
