#include "Tests/Examples/desktop/Picture.h"

#include <QDir>
#include <QGuiApplication>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QTemporaryDir>
#include <cstring>

#include <gtest/gtest.h>

namespace kiv::test {

namespace {

const QRgb* line(const QImage& image, int y) {
  return reinterpret_cast<const QRgb*>(image.constScanLine(y));
}

bool standsAt(QPoint place, const QImage& part, const QImage& picture) {
  const auto length = static_cast<std::size_t>(part.width()) * sizeof(QRgb);
  for (int y = 0; y < part.height(); ++y) {
    if (std::memcmp(line(part, y), line(picture, place.y() + y) + place.x(), length) != 0)
      return false;
  }
  return true;
}

}  // namespace

QImage screenshot() {
  return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
      QImage::Format_RGB32);
}

std::optional<QPoint> find(const QImage& part, const QImage& picture) {
  const QImage wanted = part.convertToFormat(QImage::Format_RGB32);
  for (int y = 0; y + wanted.height() <= picture.height(); ++y) {
    for (int x = 0; x + wanted.width() <= picture.width(); ++x) {
      if (standsAt({x, y}, wanted, picture)) return QPoint(x, y);
    }
  }
  return std::nullopt;
}

QRect difference(const QImage& one, const QImage& other) {
  QRect changed;
  for (int y = 0; y < one.height(); ++y) {
    for (int x = 0; x < one.width(); ++x) {
      if (line(one, y)[x] != line(other, y)[x]) changed |= QRect(x, y, 1, 1);
    }
  }
  return changed;
}

QString textIn(const QImage& picture) {
  const QTemporaryDir directory;
  const QString file = directory.filePath("picture.png");
  // Without a desktop the screen is black except for the window.
  QImage black(picture.size(), QImage::Format_RGB32);
  black.fill(Qt::black);
  const QImage window = picture.copy(difference(picture, black));
  // Text on a screen is too small for tesseract, which expects the resolution of scans.
  const int factor = window.width() < 2000 ? 2 : 1;
  window.scaled(window.size() * factor, Qt::KeepAspectRatio, Qt::SmoothTransformation).save(file);
  QProcess tesseract;
  tesseract.setStandardErrorFile(QProcess::nullDevice());
  tesseract.start("tesseract", {file, "-", "--psm", "11"});
  EXPECT_TRUE(tesseract.waitForFinished(60'000)) << "tesseract is missing, or does not end";
  return QString::fromUtf8(tesseract.readAllStandardOutput()).simplified();
}

void keep(const QImage& picture, const QString& name) {
  QDir().mkpath(PICTURES);
  EXPECT_TRUE(picture.save(QString(PICTURES) + "/" + name + ".png"));
}

}  // namespace kiv::test
