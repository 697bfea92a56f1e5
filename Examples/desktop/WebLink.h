#pragma once

#include <QString>
#include <QUrl>

/// The link, or an empty one if it is not http or https. Links come from a server, and the desktop
/// would also open programs, local files and mails.
QUrl webLink(const QString& link);
QUrl webLink(const QUrl& link);

/// Opens the link in the browser if it is http or https.
void openInBrowser(const QUrl& link);
