#include "Examples/demo/Chapters.h"

#include <memory>

#include "Examples/demo/Content.h"
#include "Examples/demo/Pass.h"
#include "KivResource/KivResource.h"
#include "Platform/KivRESTService/KivRESTService.h"
#include "Tools/contentserver/ContentServer.h"

namespace demo {

namespace {

constexpr const char* placeholder = "/banners/kivresource-placeholder-728x90.png";
constexpr const char* springLink = "/banners/spring/v2/northlight-spring-2.png";
constexpr const char* cinemaLink = "/banners/rooftop-cinema.png";
constexpr const char* balloonLink = "/banners/lost-balloon.png";

/// The main server and its mirror, which serve the same files.
struct Servers {
  explicit Servers(const Setting& setting)
      : main(setting.content + "/server"), mirror(setting.content + "/server") {}

  bool start() {
    if (!main.start() || !mirror.start()) return false;
    KivAppConfiguration::sharedInstance()->setMainACSDomain(main.url());
    KivAppConfiguration::sharedInstance()->setReserveACSDomain(mirror.url());
    return true;
  }
  [[nodiscard]] std::size_t requests(const std::string& path) const {
    return main.requestCount(path) + mirror.requestCount(path);
  }

  kiv::ContentServer main;
  kiv::ContentServer mirror;
};

std::string counted(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

/// The loaded resource of that identifier where there is exactly one.
std::shared_ptr<KivResource> loadedResource(const std::string& resourceID) {
  const auto found = KivResourceManager::sharedInstance()->loadedResourcesWithID(resourceID);
  return found.size() == 1 ? found.front() : nullptr;
}

/// The path of the only file of that resource, or an empty string.
std::string onlyFile(const std::string& resourceID) {
  const auto resource = loadedResource(resourceID);
  const auto paths = resource ? resource->useFilePaths() : std::vector<std::string>();
  return paths.size() == 1 ? paths.front() : std::string();
}

/// True where every loaded resource has its files on disk.
bool allFilesExist() {
  for (const auto& resource : KivResourceManager::sharedInstance()->allLoadedResources()) {
    if (!resource->filesExist()) return false;
  }
  return true;
}

bool videoIsWhole(const std::string& served) {
  const auto video = std::dynamic_pointer_cast<KivResourceVideo>(loadedResource("night-train"));
  return video && sameBytes(video->icon().value_or(""), served + "/video/night-train-icon.png") &&
         sameBytes(video->video().value_or(""), served + "/video/night-train.mp4");
}

/// True where the entry page lies at the top, with the style sheet and the picture that it names.
bool archiveIsUnpacked(const Setting& setting) {
  const std::string page = onlyFile("lighthouse");
  if (!page.ends_with("/lighthouse/index.html")) return false;
  const std::string folder = page.substr(0, page.rfind('/'));
  const std::string source = setting.content + "/sources/page";
  return sameBytes(page, source + "/index.html") &&
         sameBytes(folder + "/styles/page.css", source + "/styles/page.css") &&
         readFile(folder + "/images/lighthouse.png").value_or("").starts_with("\x89PNG");
}

void checkFirstFiles(const Setting& setting, const Servers& servers, Report& report) {
  const std::string served = setting.content + "/server";
  report.check(sameBytes(onlyFile("northlight-spring"),
                         served + "/banners/spring/v1/northlight-spring-1.png") &&
                   sameBytes(onlyFile("harbour-ferry"), served + "/banners/harbour-ferry.png"),
               "the banners are byte for byte those of the server");
  report.check(videoIsWhole(served), "the video has come with its icon");
  report.check(archiveIsUnpacked(setting), "the archive is unpacked: page, styles and picture");
  report.check(sameBytes(onlyFile("corner-bakery"), served + "/pages/corner-bakery.html"),
               "the page of a single file is stored");
  report.check(!onlyFile("empty-space").empty() && servers.requests(placeholder) == 0,
               "the packaged banner was taken from the bundle, without a request");
  report.check(servers.main.requestCount() == 6 && servers.mirror.requestCount() == 0,
               "six files took six requests, all to the main server");
}

/// A file that is not on disk cannot be had: without this a server that still answers would make
/// the restart look good.
void checkNoServerAnswers(const Setting& setting, Report& report) {
  const kiv::Value config = readConfig(setting.content + "/second.json");
  const auto pass = Pass::run(
      report, 1, [&](auto& host) { host.loadResourceWithID_forConfig("rooftop-cinema", config); });
  const bool single = pass->failures().size() == 1;
  const auto error = single ? pass->failures().front().error : std::nullopt;
  report.check(error && error->domain == KivRESTServiceErrorDomain &&
                   error->code == static_cast<int>(KivRESTServiceErrorCode::cannotConnect),
               "a file that is not on disk cannot be had, since no server answers:");
  if (error) report.note(error->description());
}

/// What the registry held before the update.
struct Former {
  std::string springFile = onlyFile("northlight-spring");
  std::string ferryFile = onlyFile("harbour-ferry");
};

void checkNewerAndDropped(const Setting& setting, const Former& former, Report& report) {
  const auto spring = loadedResource("northlight-spring");
  report.check(
      spring && spring->updated() == 1713000000 &&
          sameBytes(onlyFile("northlight-spring"), setting.content + "/server" + springLink),
      "the newer version of northlight-spring has replaced the older one");
  report.check(!former.springFile.empty() && !exists(former.springFile),
               "the file that only the older version used is gone");
  report.check(!loadedResource("harbour-ferry"),
               "harbour-ferry, which the configuration dropped, is loaded no longer");
  report.check(exists(former.ferryFile), "its file stays on disk, as that of anything dropped");
}

void checkEqualStamps(const Servers& servers, const Pass& pass, Report& report) {
  bool kept = true;
  for (const char* resourceID : {"empty-space", "night-train", "lighthouse", "corner-bakery"}) {
    kept = kept && pass.loaded(resourceID) && loadedResource(resourceID);
  }
  report.check(kept, "the four with an equal stamp were announced as they are");
  const std::size_t wanted =
      servers.requests(springLink) + servers.requests(cinemaLink) + servers.requests(balloonLink);
  report.check(wanted == servers.main.requestCount() + servers.mirror.requestCount(),
               "nothing was asked of the servers but what is new");
}

void checkMirror(const Setting& setting, const Servers& servers, Report& report) {
  report.check(servers.main.requestCount(cinemaLink) == 1,
               "the main server answered 503 for rooftop-cinema");
  report.check(servers.mirror.requestCount(cinemaLink) == 1 &&
                   sameBytes(onlyFile("rooftop-cinema"), setting.content + "/server" + cinemaLink),
               "its file has come from the mirror");
}

void checkFailure(const Servers& servers, const Pass& pass, Report& report) {
  const bool single = pass.failures().size() == 1;
  const auto failure = single ? pass.failures().front() : Pass::Failure{};
  report.check(
      servers.main.requestCount(balloonLink) == 1 && servers.mirror.requestCount(balloonLink) == 1,
      "both servers were asked for the file of lost-balloon, which neither has");
  report.check(failure.resourceID == "lost-balloon" && !loadedResource("lost-balloon"),
               "lost-balloon has failed, and nothing else has");
  report.check(failure.error && failure.error->domain == KivResourceRESTModuleErrorDomain &&
                   failure.error->code == InvalidResponseStatusErrorCode,
               "the observer was told why:");
  if (failure.error) report.note(failure.error->description());
}

}  // namespace

void firstLoad(const Setting& setting, Report& report) {
  report.heading("A first load into an empty cache");
  Servers servers(setting);
  report.check(servers.start(), "a content server and its mirror are on");
  const auto manager = KivResourceManager::sharedInstance();
  report.check(manager->allLoadedResources().empty(), "nothing is loaded yet");

  const kiv::Value config = readConfig(setting.content + "/first.json");
  const std::size_t total = config.dictionary()["items"].array().size();
  const auto pass =
      Pass::run(report, total, [&](auto& host) { host.loadResourcesForConfig(config); });
  report.check(total == 6 && pass->loadedCount() == total && pass->failures().empty() &&
                   manager->allLoadedResources().size() == total,
               counted(total, "resource") + " of the configuration are loaded");
  checkFirstFiles(setting, servers, report);
}

void restart(const Setting& setting, Report& report) {
  report.heading("A restart without any server");
  Servers servers(setting);
  const bool started = servers.start();
  servers.main.stop();
  servers.mirror.stop();
  report.check(started, "the servers were switched off again");

  const kiv::Value config = readConfig(setting.content + "/first.json");
  const kiv::Array items = config.dictionary()["items"].array();
  std::size_t restored = 0;
  for (const auto& item : items) {
    if (loadedResource(item.dictionary()["banner_id"].string())) ++restored;
  }
  report.check(restored == 6 && restored == items.size(),
               counted(restored, "resource") + " came back from the saved list");
  report.check(allFilesExist(), "all of their files are on disk");

  const auto pass =
      Pass::run(report, items.size(), [&](auto& host) { host.loadResourcesForConfig(config); });
  report.check(pass->loadedCount() == items.size() && pass->failures().empty(),
               "loading the same configuration again needs no server");
  checkNoServerAnswers(setting, report);
}

void update(const Setting& setting, Report& report) {
  report.heading("An update to a second configuration, with a server that fails");
  Servers servers(setting);
  servers.main.failWithStatus(cinemaLink, 503);
  report.check(servers.start(), "the servers are on again");
  const Former former;

  const kiv::Value config = readConfig(setting.content + "/second.json");
  const std::size_t total = config.dictionary()["items"].array().size();
  const auto pass =
      Pass::run(report, total, [&](auto& host) { host.updateResourcesForConfig(config); });
  checkNewerAndDropped(setting, former, report);
  checkEqualStamps(servers, *pass, report);
  checkMirror(setting, servers, report);
  checkFailure(servers, *pass, report);

  const auto loaded = KivResourceManager::sharedInstance()->allLoadedResources();
  report.heading("Loaded now: " + counted(loaded.size(), "resource"));
  report.table(loaded);
  report.check(loaded.size() == 6 && allFilesExist(), "every file in the table is on disk");
}

}  // namespace demo
