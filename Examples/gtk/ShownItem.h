#pragma once

#include <gdk/gdk.h>
#include <memory>
#include <optional>
#include <string>

class KivResource;
namespace kiv {
class DispatchQueue;
class Lease;
}  // namespace kiv

/// What the window shows of a loaded resource: plain values, made on the manager's queue. Texts are
/// from a server; they are no markup, and have no control characters.
struct ShownItem {
  enum class Kind { banner, promotion, page };

  Kind kind = Kind::banner;
  std::string id;
  std::string title;
  std::string details;                  ///< Stars and votes of a promotion.
  std::string link;                     ///< An http(s) address, or empty.
  std::string page;                     ///< The local path of a page.
  std::shared_ptr<GdkTexture> picture;  ///< nullptr if the file cannot be shown as a picture.
  /// Keeps the files for the window, also when a newer version replaces them. It ends on the
  /// manager's queue, since this removes files, which takes time.
  std::shared_ptr<const kiv::Lease> lease;

  /// Leases the files and decodes the picture, which takes time. Nothing for a resource of another
  /// kind, and for one that was replaced just now: the newer version is announced as well.
  static std::optional<ShownItem> of(const KivResource& resource,
                                     const std::shared_ptr<kiv::DispatchQueue>& queue);
};

/// The address if it is an http(s) one with a host, otherwise an empty string.
std::string webLink(const std::string& link);

/// The picture, or nullptr if the file is no PNG, JPEG or GIF, is damaged, or is too large. The
/// size is looked at before anything is decoded.
std::shared_ptr<GdkTexture> pictureAt(const std::string& file);
