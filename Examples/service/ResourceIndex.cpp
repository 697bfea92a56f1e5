#include "ResourceIndex.h"

#include <optional>

#include "ServiceLog.h"

namespace {

/// What a program needs to show the resource. The members of `files` are paths.
kiv::Dictionary entryOf(const KivResource& resource) {
  kiv::Dictionary files;
  kiv::Value kind;
  kiv::Value link;
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&resource)) {
    kind = "banner";
    link = banner->marketLink();
    files.set("image", banner->image());
  } else if (const auto* video = dynamic_cast<const KivResourceVideo*>(&resource)) {
    kind = "video";
    link = video->marketLink();
    files.set("icon", video->icon());
    files.set("video", video->video());
  } else if (const auto* page = dynamic_cast<const KivResourceWeb*>(&resource)) {
    kind = "page";
    files.set("html", page->html());
  }
  return {{"id", resource.resourceID()},
          {"kind", kind},
          {"type", resource.type()},
          {"updated", resource.updated()},
          {"name", resource.name()},
          {"link", link},
          {"files", files}};
}

}  // namespace

void ResourceIndex::publish() {
  kiv::Array entries;
  for (const auto& resource : cache_->manager()->allLoadedResources())
    entries.append(entryOf(*resource));
  std::optional<kiv::Error> error;
  const auto text =
      kiv::JSON::write(kiv::Dictionary{{"version", 1}, {"resources", entries}}).reportTo(&error);
  if (text && *text == published_) return;
  bool isWritten = false;
  if (text) {
    cache_->perform([&] {
      isWritten = KivStorageService::saveData_forFileName_atRelativePath_error(*text, "index.json",
                                                                               "", &error);
    });
  }
  if (isWritten) {
    published_ = *text;
  } else if (error) {
    writeLog(LogLevel::error, "index.json was not written: " + error->localizedDescription());
  }
}
