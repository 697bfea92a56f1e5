#pragma once

#include <QString>

namespace kiv::test {

/// The path of an item of the sample content.
QString content(const QString& path);
/// The same of what its server serves.
QString served(const QString& path);

}  // namespace kiv::test
