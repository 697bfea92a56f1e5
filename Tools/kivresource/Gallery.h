#pragma once

#include <string>
#include <string_view>

#include "KivResource/KivResource.h"

namespace tool {

/// An HTML page that shows the resources: banners as pictures, videos with title, rating and votes,
/// pages in frames of their own, which run no scripts. It leads to the local files where they are,
/// and to markets on the web. Nothing in a resource's texts can become part of the page but text.
/// Reads the pages' files.
std::string galleryPage(const kiv::ResourceArray& resources);

/// The text with HTML's own characters escaped, also within quotes.
std::string escapedHTML(std::string_view text);

/// The "file" URL of the absolute path.
std::string fileURL(std::string_view path);

}  // namespace tool
