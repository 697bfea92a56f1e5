#include "Tools/kivresource/Gallery.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tool {

namespace {

// The policy also applies to the framed pages: a "srcdoc" document inherits that of its parent.
constexpr std::string_view head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src file: data:;
 media-src file: data:; font-src file: data:; style-src 'unsafe-inline' file:; base-uri file:;
 form-action 'none'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Loaded resources</title>
<style>
body { font: 16px/1.5 system-ui, sans-serif; margin: 0 auto; max-width: 64rem; padding: 2rem 1rem;
       background: #f4f4f1; color: #222; }
h1 { font-size: 1.5rem; }
article { background: #fff; border: 1px solid #ddd; border-radius: 8px; margin: 1.5rem 0;
          padding: 1rem; }
h2 { font-size: 1.1rem; margin: 0 0 .75rem; }
small, .votes { color: #666; font-weight: normal; }
img.banner { display: block; max-width: 100%; }
img.icon { border-radius: 8px; float: left; height: 4rem; margin: 0 1rem .75rem 0; }
video { clear: both; display: block; max-height: 30rem; max-width: 100%; }
iframe { border: 1px solid #ccc; height: 30rem; width: 100%; }
.stars { color: #b7791f; letter-spacing: .1em; }
</style>
</head>
<body>
)";

constexpr std::size_t largestPage = std::size_t{4} * 1024 * 1024;

/// The contents as a link to the market if it is an http or https URL; otherwise only the contents.
std::string linked(const std::string& marketLink, const std::string& contents) {
  if (!marketLink.starts_with("https://") && !marketLink.starts_with("http://")) return contents;
  return "<a rel=\"noopener noreferrer\" href=\"" + escapedHTML(marketLink) + "\">" + contents +
         "</a>";
}

std::string source(const std::optional<std::string>& path) {
  return " src=\"" + escapedHTML(fileURL(path.value_or(""))) + "\"";
}

std::string show(const KivResourceStandard& banner) {
  return linked(banner.marketLink(), "<img class=\"banner\" alt=\"" + escapedHTML(banner.name()) +
                                         "\"" + source(banner.image()) + ">") +
         "\n";
}

/// Five stars, of which the rounded rating is filled.
std::string stars(double rating) {
  const int filled = std::clamp(static_cast<int>(std::lround(std::clamp(rating, 0.0, 5.0))), 0, 5);
  std::string text;
  for (int star = 0; star < 5; ++star)
    text += star < filled ? "★" : "☆";
  return text;
}

std::string show(const KivResourceVideo& video) {
  std::array<char, 512> rating{};
  std::snprintf(rating.data(), rating.size(), "%.1f", video.rating());
  return "<img class=\"icon\" alt=\"\"" + source(video.icon()) + ">\n<p><strong>" +
         linked(video.marketLink(), escapedHTML(video.title())) +
         "</strong><br>\n<span class=\"stars\">" + stars(video.rating()) + "</span> " +
         rating.data() + " <span class=\"votes\">" + std::to_string(video.votes()) +
         (video.votes() == 1 ? " vote" : " votes") +
         "</span></p>\n<video controls preload=\"metadata\"" + source(video.video()) +
         "></video>\n";
}

/// Shows a page in a sandboxed frame without scripts. As a plain file it would run them with the
/// rights of local files. In the frame it has no access to the network or to this page, opens no
/// windows and submits no forms. A page from an archive keeps the origin of this page, without
/// which the browser would not show its pictures. A single-file page does not need that and cannot
/// read any file.
std::string show(const KivResourceWeb& page) {
  const std::string path = page.html().value_or("");
  auto& files = kiv::FileManager::defaultManager();
  if (files.sizeOfItemAtPath(path).value_or(0) > largestPage)
    return "<p>The page is too large to show.</p>\n";
  const auto contents = files.contentsAtPath(path);
  if (!contents) return "<p>The page cannot be read.</p>\n";
  const auto directory = KivResourceStorageModule::directoryOfPageAtPath(path);
  const std::string base =
      directory ? "<base href=\"" + escapedHTML(fileURL(*directory)) + "/\">" : std::string();
  return "<iframe sandbox=\"" + std::string(directory ? "allow-same-origin" : "") + "\" title=\"" +
         escapedHTML(page.name()) + "\" srcdoc=\"" + escapedHTML(base) +
         escapedHTML(contents->view()) + "\"></iframe>\n";
}

std::string contents(const KivResource& resource) {
  if (const auto* banner = dynamic_cast<const KivResourceStandard*>(&resource))
    return show(*banner);
  if (const auto* video = dynamic_cast<const KivResourceVideo*>(&resource)) return show(*video);
  if (const auto* page = dynamic_cast<const KivResourceWeb*>(&resource)) return show(*page);
  return "<p>A resource of the engine “" + escapedHTML(resource.engine()) +
         "”, without files.</p>\n";
}

std::string article(const KivResource& resource) {
  return "<article id=\"" + escapedHTML(resource.resourceID()) + "\">\n<h2>" +
         escapedHTML(resource.name()) + " <small>" + escapedHTML(resource.type()) + " · " +
         escapedHTML(resource.resourceID()) + "</small></h2>\n" + contents(resource) +
         "</article>\n";
}

}  // namespace

std::string galleryPage(const kiv::ResourceArray& resources) {
  std::string page(head);
  page += "<h1>" + std::to_string(resources.size()) +
          (resources.size() == 1 ? " resource" : " resources") + "</h1>\n";
  for (const auto& resource : resources)
    page += article(*resource);
  return page + "</body>\n</html>\n";
}

std::string escapedHTML(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&#39;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

std::string fileURL(std::string_view path) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  constexpr std::string_view plain = "/-._~";
  std::string url = "file://";
  for (const char character : path) {
    const auto code = static_cast<unsigned char>(character);
    const bool isAlphanumeric = (character >= 'a' && character <= 'z') ||
                                (character >= 'A' && character <= 'Z') ||
                                (character >= '0' && character <= '9');
    if (isAlphanumeric || plain.find(character) != std::string_view::npos) {
      url += character;
    } else {
      url.append(1, '%').append(1, digits[code >> 4]).append(1, digits[code & 15]);
    }
  }
  return url;
}

}  // namespace tool
