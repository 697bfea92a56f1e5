#include <iostream>

#include "KivResource/KivResource.h"
#include "KivSession/ResourceJSON.h"
#include "Tools/kivresource/Commands.h"
#include "Tools/kivresource/ExitStatus.h"
#include "Tools/kivresource/Host.h"
#include "Tools/kivresource/Terminal.h"
#include "Tools/kivresource/Text.h"

namespace tool {

namespace {

struct Answer {
  const char* name;
  kiv::ResourceArray resources;
};

Answer ask(const KivResourceManager& manager, const Options& options) {
  if (options.id) return {"loadedResourcesWithID", manager.loadedResourcesWithID(options.id)};
  if (options.type)
    return {"loadedResourcesWithType", manager.loadedResourcesWithType(options.type)};
  return {"allLoadedResources", manager.allLoadedResources()};
}

void show(const KivResource& resource, const Terminal& terminal) {
  std::cout << terminal.styled(Terminal::Style::bold,
                               kiv::escapingControlCharacters(resource.resourceID()))
            << "  " << kiv::escapingControlCharacters(resource.type()) << "  "
            << kiv::escapingControlCharacters(resource.name()) << '\n';
  for (const auto& path : resource.useFilePaths())
    std::cout << "    " << kiv::escapingControlCharacters(path) << '\n';
  if (!resource.filesExist()) {
    std::cout << "    " << terminal.styled(Terminal::Style::red, "its files are gone") << '\n';
  }
}

}  // namespace

int runList(const Options& options) {
  if (!configureFramework(options)) return exitStatus::usage;
  keepLogFromTerminal();
  const Answer answer = ask(*KivResourceManager::sharedInstance(), options);
  if (options.json) {
    printJSONLine(kiv::Dictionary{{"result", answer.name},
                                  {"resources", kiv::session::resourcesJSON(answer.resources)}});
    return exitStatus::success;
  }
  const Terminal terminal;
  for (const auto& resource : answer.resources)
    show(*resource, terminal);
  std::cout << counted(answer.resources.size(), "resource") << std::endl;
  return exitStatus::success;
}

}  // namespace tool
