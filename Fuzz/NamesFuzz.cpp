// Checks any text as a file name, a link, a name in an archive and a relative path.

#include <cstddef>
#include <string>

#include "Fuzz/Require.h"
#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"
#include "KivPlatform/Foundation/files/FileName.h"
#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivPlatform/KivStorageService/KivStorageService.h"
#include "KivPlatform/KivStorageService/archive/ArchiveRules.h"
#include "KivPlatform/KivStorageService/store/StoredPath.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivResource/KivResourceStorageModule.h"

namespace {

namespace path = kiv::path;
namespace storage = kiv::storage;
using kiv::fuzz::require;

constexpr std::string_view resources = "KivResource/Resources";

/// True for what a system call interprets as a single name in the directory.
bool isOneName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.size() <= 255 &&
         name.find('/') == name.npos && name.find('\\') == name.npos &&
         name.find('\0') == name.npos;
}

void checkPathStrings(std::string_view text) {
  const auto name = path::lastPathComponent(text);
  require(text.ends_with(name) && name.find('/') == name.npos, "the last component is one");
  require(path::appendingPathComponent("/a", name).starts_with("/a"), "a component goes behind");
  const auto stem = path::deletingPathExtension(text);
  require(text.starts_with(stem) && text.ends_with(path::pathExtension(text)),
          "stem and extension are parts");
}

void checkFileName(std::string_view name) {
  const bool isValid = kiv::filename::isValid(name);
  require(!isValid || isOneName(name), "a harmless name is one name");
  const bool isSaved = static_cast<bool>(storage::checkSaving(name, resources));
  require(isValid || !isSaved, "a harmful name is never saved");
  if (isSaved && storage::isArchiveName(name)) {
    require(isOneName(storage::archiveStem(name)), "so is an archive's directory");
  }
  require(!KivStorageService::fileExistsWithName_atRelativePath(name, resources),
          "nothing lies in an empty root");
  require(!KivResourceStorageModule::pathToResourceFileWithName(name), "nor is anything found");
}

void requireNames(std::string_view relativePath) {
  while (true) {
    const auto name = relativePath.substr(0, relativePath.find('/'));
    require(isOneName(name), "a relative path is made of names");
    if (name.size() == relativePath.size()) return;
    relativePath.remove_prefix(name.size() + 1);
  }
}

void checkRelativePath(std::string_view text) {
  if (!text.empty() && !storage::validateRelativePath(text)) requireNames(text);
}

void checkEntryName(std::string_view name) {
  if (!kiv::unicode::isUTF8(name)) return;  // refused before it comes to this
  if (storage::validateEntryName(name, kiv::ArchiveLimits())) return;
  const auto way = storage::pathOfEntryName(name);
  if (!way.empty()) requireNames(way);
}

void checkLink(std::string_view link) {
  static const KivResourceRESTModule module;
  for (const char* const domain : {"http://main.test", "https://main.test:81/base", "main.test"}) {
    KivAppConfiguration::sharedInstance()->setMainACSDomain(domain);
    const auto url = module.mainURLForFileWithLink(link);
    if (!url) continue;
    const std::string_view text = url->absoluteString();
    require(text.starts_with(domain) && text.substr(std::string_view(domain).size())[0] == '/',
            "a URL is the domain, a separator and the link");
    require(url->host() == (std::string_view(domain) == "main.test" ? "" : "main.test"),
            "a link never leads to another host");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  KivStorageService::setRootPath("/nonexistent/root");
  const std::string_view text = kiv::fuzz::textOf(bytes, size);
  checkPathStrings(text);
  checkFileName(text);
  checkFileName(path::lastPathComponent(text));
  checkRelativePath(text);
  checkEntryName(text);
  checkLink(text);
  const auto folded = kiv::unicode::folded(text);
  require(folded.size() <= 4 * text.size(), "folding takes a letter apart into few");
  return 0;
}
