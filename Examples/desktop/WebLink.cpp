#include "WebLink.h"

#include <QDesktopServices>

QUrl webLink(const QString& link) {
  return webLink(QUrl(link, QUrl::StrictMode));
}

QUrl webLink(const QUrl& link) {
  const bool isWeb = link.scheme() == "http" || link.scheme() == "https";
  return link.isValid() && isWeb && !link.host().isEmpty() ? link : QUrl();
}

void openInBrowser(const QUrl& link) {
  if (const QUrl safe = webLink(link); !safe.isEmpty()) QDesktopServices::openUrl(safe);
}
