#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <memory>
#include <string>

namespace kiv::test {

using Picture = std::shared_ptr<GdkPixbuf>;

/// A picture of the whole X screen.
Picture screenshot();
/// The picture in a file, without alpha.
Picture pictureIn(const std::string& file);
/// True if `whole` has an exact copy of `part`.
bool contains(const Picture& whole, const Picture& part);
/// Saves the picture with that name for inspection.
void keep(const Picture& picture, const std::string& name);

}  // namespace kiv::test
