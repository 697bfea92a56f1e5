#include <KivResource/KivResource.h>
#include <QApplication>
#include <QCommandLineParser>
#include <QDir>

#include "CacheSession.h"
#include "MainWindow.h"
#include "QtMainQueue.h"

namespace {

struct Options {
  QCommandLineOption root{"root", "Keep the cache in this <directory>.", "directory"};
  QCommandLineOption server{"server", "Fetch files from this <address>.", "address"};
  QCommandLineOption mirror{"mirror", "And where that fails from this <address>.", "address"};
  QCommandLineOption config{
      "config", "A <configuration>, a file or an http(s) address. May be given several times.",
      "configuration"};
};

/// Must be called before the framework is used otherwise.
void configureFramework(const QCommandLineParser& parser, const Options& options) {
  if (parser.isSet(options.root)) {
    const QString root = QDir::current().absoluteFilePath(parser.value(options.root));
    KivStorageService::setRootPath(root.toStdString());
  }
  const auto servers = KivAppConfiguration::sharedInstance();
  if (parser.isSet(options.server))
    servers->setMainACSDomain(parser.value(options.server).toStdString());
  if (parser.isSet(options.mirror))
    servers->setReserveACSDomain(parser.value(options.mirror).toStdString());
}

}  // namespace

int main(int count, char** arguments) {
  QApplication application(count, arguments);
  QApplication::setApplicationName("kivresource-desktop");
  QCommandLineParser parser;
  const Options options;
  parser.setApplicationDescription("Shows what a cache of advertising resources holds.");
  parser.addHelpOption();
  parser.addOptions({options.root, options.server, options.mirror, options.config});
  parser.process(application);
  configureFramework(parser, options);

  const QtMainQueue mainQueue;
  CacheSession session(kiv::DispatchQueue::serial("resources"));
  MainWindow window(session, parser.values(options.config));
  window.show();
  return QApplication::exec();
}
