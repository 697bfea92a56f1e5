#pragma once

#include <string>
#include <string_view>

#include "KivResource/KivResource.h"

namespace tool {

/// Returns an HTML page that shows the resources: banners as pictures, videos with title, rating
/// and votes, pages in frames without scripts. It refers to the local files in place and links to
/// markets on the web. All texts of a resource are escaped. Reads the files of the pages.
std::string galleryPage(const kiv::ResourceArray& resources);

/// Escapes the special characters of HTML, including quotes.
std::string escapedHTML(std::string_view text);

/// The "file" URL of an absolute path.
std::string fileURL(std::string_view path);

}  // namespace tool
