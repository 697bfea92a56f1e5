#pragma once

#include <QImage>
#include <QString>
#include <QUrl>
#include <memory>

class KivResource;
namespace kiv {
class Lease;
}

/// What the window shows of one loaded resource: plain values, created on the manager's queue and
/// then passed to the window's thread.
struct CacheItem {
  enum class Kind {
    banner,     ///< A picture.
    promotion,  ///< A video, with the picture as its icon.
    page,
    other,  ///< Has no files, and so nothing to show.
  };

  Kind kind = Kind::other;
  QString id;
  QString title;
  QUrl market;     ///< Where a click leads; empty if that is no web address.
  QImage picture;  ///< Null where the file cannot be read as a picture.
  QString video;   ///< Local path.
  QString page;    ///< Local path.
  /// The directory of the page's files; empty if the page is a single file.
  QString pageFolder;
  /// Keeps the video, or the page with its directory. A view that shows them must own it: the cache
  /// may remove the files at any time.
  std::shared_ptr<const kiv::Lease> lease;
  quint64 votes = 0;
  double rating = 0;
  /// Different for items that look different, also where only the contents of a file do.
  QString version;

  /// Reads the resource and decodes its pictures, which takes time. `timesChanged` is how often its
  /// files have changed under their names.
  static CacheItem of(const KivResource& resource, int timesChanged);
};
