// Measures the longest time that the window does not respond while a pass fetches 200 files and
// unpacks an archive of 50 MB: the longest interval between two ticks of a 10 ms timer. Runs in a
// separate process.
//
//   longest-gap serial|main
//
// The manager runs on its own serial queue or, for comparison, on the main queue. Prints one line
// "GAP PASS LOADED": two times in milliseconds and the number of loaded resources.

#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "Examples/desktop/CacheSession.h"
#include "Examples/desktop/MainWindow.h"
#include "Examples/desktop/QtMainQueue.h"
#include "KivResource/KivResource.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/ZipBuilder.h"
#include "Tools/contentserver/ContentServer.h"

namespace {

constexpr int ticksOfAQuietWindow = 50;
constexpr int bannerCount = 200;
constexpr int archiveFiles = 50;
constexpr std::size_t archiveFileSize = 1'000'000;

std::string itemText(const std::string& id, const std::string& engine, const std::string& rest) {
  return R"({"engine": ")" + engine + R"(", "name": "N", "type": "t", "banner_id": ")" + id +
         R"(", "priority": 1, "updated": 1, )" + rest + "}";
}

std::string makeBanners(const kiv::test::TemporaryDirectory& directory) {
  std::string items;
  for (int index = 0; index < bannerCount; ++index) {
    const std::string name = "banner-" + std::to_string(index) + ".png";
    QImage picture(728, 90, QImage::Format_RGB32);
    picture.fill(QColor::fromHsv(index, 200, 200));
    const std::string path = directory.write("server/" + name);
    picture.save(QString::fromStdString(path), "PNG");
    items += itemText(std::to_string(index), "eco_standard",
                      R"("market_url": "https://a.example", "image_728x90": ")" + name + "\"") +
             ", ";
  }
  return items;
}

std::string makeArchive(const kiv::test::TemporaryDirectory& directory) {
  std::mt19937_64 random(1);  // NOLINT(cert-msc51-cpp): the same bytes every time
  kiv::test::ZipBuilder archive;
  archive.add({.name = "index.html", .contents = "<h1>A page</h1>"});
  for (int index = 0; index < archiveFiles; ++index) {
    std::string bytes(archiveFileSize, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    archive.add({.name = std::to_string(index) + ".bin", .contents = std::move(bytes)});
  }
  directory.write("server/page.zip", archive.build());
  return itemText("page", "eco_fs", R"("html": "page.zip")");
}

}  // namespace

int main(int count, char** arguments) {
  const bool onMain = count == 2 && std::strcmp(arguments[1], "main") == 0;
  QApplication application(count, arguments);
  const kiv::test::TemporaryDirectory directory;
  const std::string items = makeBanners(directory) + makeArchive(directory);
  const std::string config = directory.write("config.json", "{\"items\": [" + items + "]}");
  kiv::ContentServer server(directory.path("server"));
  if (!server.start()) return 1;
  KivStorageService::setRootPath(directory.path("root"));
  KivAppConfiguration::sharedInstance()->setMainACSDomain(server.url());

  const QtMainQueue mainQueue;
  CacheSession session(onMain ? kiv::DispatchQueue::main()
                              : kiv::DispatchQueue::serial("resources"));
  MainWindow window(session, {QString::fromStdString(config)});
  window.show();

  QElapsedTimer sinceTick;
  QElapsedTimer sinceStart;
  qint64 longest = 0;
  int quietTicks = 0;
  QTimer timer;
  timer.setTimerType(Qt::PreciseTimer);
  QObject::connect(&timer, &QTimer::timeout, [&] {
    const qint64 gap = sinceTick.restart();
    if (sinceStart.isValid()) {
      longest = std::max(longest, gap);
    } else if (quietTicks = gap < 50 ? quietTicks + 1 : 0; quietTicks == ticksOfAQuietWindow) {
      // Measure only after the window is shown and idle.
      sinceStart.start();
      session.start(CacheSession::Pass::load, QString::fromStdString(config));
    }
  });
  sinceTick.start();
  timer.start(10);
  qsizetype loaded = 0;
  QObject::connect(&session, &CacheSession::contentsChanged,
                   [&](const QList<CacheItem>& contents) { loaded = contents.size(); });
  QObject::connect(&session, &CacheSession::ended, &application, &QApplication::quit,
                   Qt::QueuedConnection);
  QApplication::exec();
  longest = std::max(longest, sinceTick.elapsed());
  std::printf("%lld %lld %lld\n", static_cast<long long>(longest),
              static_cast<long long>(sinceStart.elapsed()), static_cast<long long>(loaded));
  std::fflush(stdout);
  // Skip the destructors: on the main queue, the session would wait for its own thread.
  if (onMain) std::_Exit(0);
}
