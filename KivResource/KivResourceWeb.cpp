// The link names an archive or a single page; the stored page of an archive has another name and
// directory. isPageOfLink() compares names only.

#include "KivResource/KivResourceWeb.h"

#include "KivPlatform/Foundation/files/Path.h"
#include "KivResource/KivResourceConstants.h"

using kiv::path::deletingLastPathComponent;
using kiv::path::deletingPathExtension;
using kiv::path::lastPathComponent;

namespace {

constexpr std::string_view pageKey = "html";
constexpr std::string_view archivePageName = KivResouceArchiveKey[1];

/// The name of the folder that contains the item.
std::string_view folderName(std::string_view path) {
  return lastPathComponent(deletingLastPathComponent(path));
}

/// True if the local path is that of the link's page. `link` may also be a former path of the page.
/// Compares names, not whole paths.
bool isPageOfLink(std::string_view path, std::string_view link) {
  const std::string_view linkName = lastPathComponent(link);
  const std::string_view pathName = lastPathComponent(path);
  const bool isSingleFile = linkName != archivePageName && linkName == pathName;
  const bool isPageOfArchive = deletingPathExtension(linkName) == folderName(path);
  const bool isSamePageElsewhere =
      linkName == archivePageName && folderName(link) == folderName(path) && pathName == linkName;
  return isSingleFile || isPageOfArchive || isSamePageElsewhere;
}

}  // namespace

std::shared_ptr<KivResourceWeb> KivResourceWeb::initWithDictionary_engine(
    const kiv::Dictionary& dictionary, const std::string& engine) {
  return initialised(std::shared_ptr<KivResourceWeb>(new KivResourceWeb), dictionary, engine);
}

std::shared_ptr<KivResource> KivResourceWeb::emptyInstance() const {
  return std::shared_ptr<KivResource>(new KivResourceWeb);
}

bool KivResourceWeb::setUp(const kiv::Dictionary& dictionary, const std::string& engine) {
  if (!KivResource::setUp(dictionary, engine)) return false;
  if (!isValidResourceFullscreenDictionary(dictionary)) return false;
  const kiv::Value& page = dictionary[pageKey];
  fileIsLoaded_ = fileExistsAt(page);
  html_ = fileIsLoaded_ ? page : kiv::Value();
  return true;
}

kiv::KindKeys KivResourceWeb::requiredKeys() {
  return {{pageKey}, {pageKey}};
}

bool KivResourceWeb::isValidResourceFullscreenDictionary(const kiv::Dictionary& dictionary) const {
  return hasString(dictionary, pageKey);
}

bool KivResourceWeb::filesExist() const {
  return fileExistsAt(html_);
}

std::vector<std::string> KivResourceWeb::missingFilesLinks() const {
  if (fileIsLoaded_) return {};
  return listOf(linkForKey(pageKey));
}

std::vector<std::string> KivResourceWeb::useFilePaths() const {
  if (!fileIsLoaded_) return {};
  return listOf(html_);
}

void KivResourceWeb::setPath(const std::string& path) {
  if (!isPageOfLink(path, linkForKey(pageKey).stringView())) return;
  const kiv::Value stored(path);
  if (!fileExistsAt(stored)) return;
  update(fileIsLoaded_, true);
  recordPath_forKey(stored, pageKey);
  update(html_, stored);
}

bool KivResourceWeb::looksForOwnFilesOnly() const {
  return typeid(*this) == typeid(KivResourceWeb);
}

std::optional<kiv::Value> KivResourceWeb::valueForProperty(std::string_view name) const {
  if (name == "html") return html_;
  if (name == "fileIsLoaded") return fileIsLoaded_;
  return KivResource::valueForProperty(name);
}
