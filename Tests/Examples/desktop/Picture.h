#pragma once

#include <QImage>
#include <QString>
#include <optional>

namespace kiv::test {

/// A screenshot of the whole X screen with the windows of all programs.
QImage screenshot();

/// The position of an exact copy of `part` in `picture`; nullopt if there is none.
std::optional<QPoint> find(const QImage& part, const QImage& picture);

/// The smallest rectangle that contains all differences.
QRect difference(const QImage& one, const QImage& other);

/// The text in the picture as recognized by tesseract, on one line.
QString textIn(const QImage& picture);

/// Saves the picture with that name for inspection.
void keep(const QImage& picture, const QString& name);

}  // namespace kiv::test
