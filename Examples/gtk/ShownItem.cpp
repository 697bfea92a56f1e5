#include "ShownItem.h"

#include <KivResource/KivResource.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

namespace {

/// The largest side of a picture that is decoded, in pixels. No banner is larger.
constexpr int largestSide = 4096;
/// Decoders for other formats are large, and a server is not to choose among all that this machine
/// has.
constexpr std::array<std::string_view, 3> formats = {"png", "jpeg", "gif"};

std::string stars(const KivResourceVideo& promotion) {
  const double rating = std::isfinite(promotion.rating()) ? promotion.rating() : 0;
  const int full = static_cast<int>(std::lround(std::clamp(rating, 0.0, 5.0)));
  std::string text;
  for (int star = 0; star < 5; ++star)
    text += star < full ? "★" : "☆";
  return text + "  " + std::to_string(promotion.votes()) + " votes";
}

/// The files that are shown are those of the lease, which stay.
bool fillIn(const KivResource& leased, ShownItem& item) {
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&leased)) {
    item.kind = ShownItem::Kind::banner;
    item.link = webLink(banner->marketLink());
    item.picture = pictureAt(banner->image().value_or(""));
  } else if (const auto* promotion = dynamic_cast<const KivResourceVideo*>(&leased)) {
    item.kind = ShownItem::Kind::promotion;
    item.title = kiv::escapingControlCharacters(promotion->title());
    item.details = stars(*promotion);
    item.link = webLink(promotion->marketLink());
    item.picture = pictureAt(promotion->icon().value_or(""));
  } else if (const auto* page = dynamic_cast<const KivResourceWeb*>(&leased)) {
    item.kind = ShownItem::Kind::page;
    item.page = page->html().value_or("");
  } else {
    return false;
  }
  return true;
}

}  // namespace

std::optional<ShownItem> ShownItem::of(const KivResource& resource,
                                       const std::shared_ptr<kiv::DispatchQueue>& queue) {
  auto lease = kiv::Lease::take(resource);
  if (!lease) return std::nullopt;
  ShownItem item;
  item.id = resource.resourceID();
  item.title = kiv::escapingControlCharacters(resource.name());
  if (!fillIn(*lease->resource(), item)) return std::nullopt;
  item.lease = std::shared_ptr<const kiv::Lease>(
      new kiv::Lease(*std::move(lease)),
      [queue](const kiv::Lease* ended) { queue->async([ended] { delete ended; }); });
  return item;
}

std::string webLink(const std::string& link) {
  const auto url = kiv::URL::fromString(link);
  const bool isWeb = url && (url->scheme() == "http" || url->scheme() == "https");
  return isWeb && !url->host().empty() ? link : std::string();
}

std::shared_ptr<GdkTexture> pictureAt(const std::string& file) {
  int width = 0;
  int height = 0;
  GdkPixbufFormat* const format = gdk_pixbuf_get_file_info(file.c_str(), &width, &height);
  if (!format || width > largestSide || height > largestSide) return nullptr;
  char* const name = gdk_pixbuf_format_get_name(format);
  const bool isKnown =
      std::find(formats.begin(), formats.end(), std::string_view(name)) != formats.end();
  g_free(name);
  if (!isKnown) return nullptr;
  GdkPixbuf* const pixels = gdk_pixbuf_new_from_file(file.c_str(), nullptr);
  if (!pixels) return nullptr;
  GdkTexture* const texture = gdk_texture_new_for_pixbuf(pixels);
  g_object_unref(pixels);
  return {texture, [](GdkTexture* unused) { g_object_unref(unused); }};
}
