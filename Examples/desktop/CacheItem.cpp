#include "CacheItem.h"

#include <KivResource/KivResource.h>
#include <QImageReader>

#include "WebLink.h"

namespace {

QString text(const std::string& utf8) {
  return QString::fromStdString(utf8);
}

QString path(const std::optional<std::string>& local) {
  return local ? text(*local) : QString();
}

/// The largest side of a picture that is decoded. No banner is larger, and a huge picture costs
/// memory and time.
constexpr int largestSide = 4096;

/// The file comes from a server. Its name says nothing reliable about the format, so the contents
/// decide.
QImage pictureAt(const QString& file) {
  QImageReader reader(file);
  reader.setDecideFormatFromContent(true);
  const QSize size = reader.size();
  if (size.width() > largestSide || size.height() > largestSide) return {};
  return reader.read();
}

void fillIn(const KivResourceStandard& banner, CacheItem& item) {
  KivResourceMaintenance::noteShown(banner);  // where there is a lease, it does so
  item.kind = CacheItem::Kind::banner;
  item.market = webLink(text(banner.marketLink()));
  item.picture = pictureAt(path(banner.image()));
}

/// The resource with paths that stay. A resource that was replaced just now has no lease, and is
/// announced again.
template <class Kind>
const Kind& leased(const Kind& resource, CacheItem& item) {
  auto lease = kiv::Lease::take(resource);
  if (!lease) return resource;
  item.lease = std::make_shared<const kiv::Lease>(*std::move(lease));
  return dynamic_cast<const Kind&>(*item.lease->resource());
}

void fillIn(const KivResourceVideo& promotion, CacheItem& item) {
  item.kind = CacheItem::Kind::promotion;
  item.title = text(promotion.title());
  item.market = webLink(text(promotion.marketLink()));
  item.picture = pictureAt(path(promotion.icon()));
  item.video = path(leased(promotion, item).video());
  item.votes = promotion.votes();
  item.rating = promotion.rating();
}

void fillIn(const KivResourceWeb& page, CacheItem& item) {
  item.kind = CacheItem::Kind::page;
  const std::string file = leased(page, item).html().value_or(std::string());
  item.page = text(file);
  item.pageFolder = path(KivResourceStorageModule::directoryOfPageAtPath(file));
}

}  // namespace

CacheItem CacheItem::of(const KivResource& resource, int timesChanged) {
  CacheItem item;
  item.id = text(resource.resourceID());
  item.title = text(resource.name());
  item.version = QString("%1.%2").arg(resource.updated()).arg(timesChanged);
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&resource)) {
    fillIn(*banner, item);
  } else if (const auto* promotion = dynamic_cast<const KivResourceVideo*>(&resource)) {
    fillIn(*promotion, item);
  } else if (const auto* page = dynamic_cast<const KivResourceWeb*>(&resource)) {
    fillIn(*page, item);
  }
  return item;
}
