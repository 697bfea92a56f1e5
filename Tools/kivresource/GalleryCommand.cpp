#include <cerrno>
#include <fstream>
#include <iostream>
#include <system_error>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Gallery.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/Text.h"

namespace tool {

int runGallery(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  keepLogFromTerminal();
  const auto resources = KivResourceManager::sharedInstance()->allLoadedResources();
  std::ofstream file(options.page, std::ios::binary);
  file << galleryPage(resources);
  file.close();
  if (!file) {
    complain(options.page + ": " + std::error_code(errno, std::generic_category()).message());
    return exitStatus::failure;
  }
  std::cout << kiv::escapingControlCharacters(options.page) << " shows "
            << counted(resources.size(), "resource") << std::endl;
  return exitStatus::success;
}

}  // namespace tool
