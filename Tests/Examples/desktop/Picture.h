#pragma once

#include <QImage>
#include <QString>
#include <optional>

namespace kiv::test {

/// The whole screen, as X has it now: every program's windows.
QImage screenshot();

/// Where the part stands in the picture, pixel by pixel; nothing if it does not.
std::optional<QPoint> find(const QImage& part, const QImage& picture);

/// The smallest rectangle outside of which the two are alike.
QRect difference(const QImage& one, const QImage& other);

/// The words in the picture, as tesseract reads them, on one line.
QString textIn(const QImage& picture);

/// Keeps the picture under that name, for a person to look at.
void keep(const QImage& picture, const QString& name);

}  // namespace kiv::test
