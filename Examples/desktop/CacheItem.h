#pragma once

#include <QImage>
#include <QString>
#include <QUrl>

class KivResource;

/// What the window shows of one loaded resource: plain values of the window's own, made on the
/// queue of the manager and then handed to the thread of the window.
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
  /// Where the page's own files lie; empty if it is one file.
  QString pageFolder;
  quint64 votes = 0;
  double rating = 0;
  /// Differs where anything differs that is to be seen, also the contents of a file.
  QString version;

  /// Reads the resource and its pictures: takes a moment, and touches the disk.
  static CacheItem of(const KivResource& resource);
};
