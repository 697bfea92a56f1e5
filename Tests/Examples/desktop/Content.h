#pragma once

#include <QString>

namespace kiv::test {

/// The path of an item of the sample content.
QString content(const QString& path);
/// The path of a file in the directory that its server serves.
QString served(const QString& path);

}  // namespace kiv::test
