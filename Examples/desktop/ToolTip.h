#pragma once

#include <QString>

/// A tool tip that shows the text as it is. Texts come from a server, and Qt would take one that
/// looks like HTML as HTML.
QString plainToolTip(const QString& text);
