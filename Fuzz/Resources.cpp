#include "Fuzz/Resources.h"

#include "Fuzz/Require.h"
#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/KivResourceStorageModule.h"

namespace kiv::fuzz {

namespace {

/// An empty root, so that no result depends on the machine.
constexpr const char* root = "/nonexistent/root";

void exerciseLink(const KivResourceRESTModule& module, const std::string& link) {
  const auto url = module.mainURLForFileWithLink(link);
  require(!url || (url->scheme() == "http" && url->host() == "main.test"),
          "a link never leads to another host");
  require(!KivResourceStorageModule::pathToResourceFileWithName(path::lastPathComponent(link)),
          "nothing is found in an empty root");
}

void exerciseOne(const KivResourceRESTModule& module, KivResource& resource) {
  (void)resource.filesExist();
  (void)resource.useFilePaths();
  for (const std::string& link : resource.missingFilesLinks()) {
    exerciseLink(module, link);
    resource.setPath(path::appendingPathComponent(root, path::lastPathComponent(link)));
  }
  const auto copy = resource.copyWithZone();
  require(copy != nullptr, "a resource can be copied");
  require(*copy->resourceDictionary() == *resource.resourceDictionary(), "a copy is equal");
  require(copy->updated() == resource.updated() && copy->priority() == resource.priority() &&
              copy->resourceID() == resource.resourceID() && copy->type() == resource.type(),
          "a copy reads the same");
}

}  // namespace

void exercise(const std::vector<std::shared_ptr<KivResource>>& resources) {
  KivStorageService::setRootPath(root);
  KivAppConfiguration::sharedInstance()->setMainACSDomain("http://main.test");
  static const KivResourceRESTModule module;
  Array dictionaries;
  for (const auto& resource : resources) {
    exerciseOne(module, *resource);
    dictionaries.append(*resource->resourceDictionary());
  }
  const auto bytes = KivResourceStorageModule::dataForArray_error(dictionaries);
  require(bytes.has_value(), "what was read can be saved");
  require(KivResourceStorageModule::arrayOfDictionaryFromData_error(*bytes) == dictionaries,
          "what was saved is restored");
}

}  // namespace kiv::fuzz
