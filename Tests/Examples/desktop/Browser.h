#pragma once

#include <QDesktopServices>
#include <QList>
#include <QObject>
#include <QUrl>

namespace kiv::test {

/// Replaces the browser and every other program with which the desktop opens links.
class Browser final : public QObject {
  Q_OBJECT

 public:
  Browser() {
    for (const char* scheme : schemes)
      QDesktopServices::setUrlHandler(scheme, this, "open");
  }
  ~Browser() override {
    for (const char* scheme : schemes)
      QDesktopServices::unsetUrlHandler(scheme);
  }

  QList<QUrl> opened;

 public slots:
  void open(const QUrl& url) { opened.append(url); }

 private:
  static constexpr const char* schemes[]{"http", "https", "file"};
};

}  // namespace kiv::test
