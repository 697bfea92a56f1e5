#include "Tests/Examples/desktop/Content.h"

namespace kiv::test {

QString content(const QString& path) {
  return QString(KIVRESOURCE_CONTENT) + "/" + path;
}

QString served(const QString& path) {
  return content("server/" + path);
}

}  // namespace kiv::test
