#pragma once

#include <QString>
#include <QUrl>

/// The link, or an empty one where it does not lead to the web. Links come from a server, and the
/// desktop would open others too: a program, a local file, a mail.
QUrl webLink(const QString& link);
QUrl webLink(const QUrl& link);

/// Opens the link in the browser. One that does not lead to the web is passed over.
void openInBrowser(const QUrl& link);
