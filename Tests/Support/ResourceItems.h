#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "KivPlatform/Foundation/values/Value.h"

// Resource dictionaries as they appear in a configuration, and functions that return changed
// copies.

namespace kiv::test {

inline Dictionary with(Dictionary dictionary, std::string_view key, Value value) {
  dictionary.set(key, std::move(value));
  return dictionary;
}

inline Dictionary without(Dictionary dictionary, std::string_view key) {
  dictionary.remove(key);
  return dictionary;
}

/// The keys that every resource requires, with an engine that no resource class handles.
inline Dictionary plainItem() {
  return {{"engine", "eco_unknown"}, {"name", "Spring"}, {"type", "banner"},
          {"banner_id", "b-1"},      {"priority", 7},    {"updated", 1700000000}};
}

inline Dictionary standardItem() {
  Dictionary item = with(plainItem(), "engine", "eco_standard");
  item.set("market_url", "https://market.test/app/1");
  item.set("image_728x90", "banners/wide.png");
  item.set("image_320x50", "banners/small.png");
  return item;
}

inline Dictionary videoItem() {
  Dictionary item = with(plainItem(), "engine", "eco_video");
  item.set("title", "Promo");
  item.set("market_url", "https://market.test/app/2");
  item.set("image", "media/icon.png");
  item.set("video_file_landscape", "media/land.mp4");
  item.set("video_file_portrait", "media/port.mp4");
  item.set("votes", 120);
  item.set("rating", 4.7);
  return item;
}

inline Dictionary webItem() {
  return with(with(plainItem(), "engine", "eco_fs"), "html", "promo/page.zip");
}

// Shorter forms, by identifier, version and links, for tests that need many items.

inline Dictionary bannerOf(const std::string& identifier, std::uint64_t updated,
                           const std::string& link) {
  return {{"engine", "eco_standard"},
          {"name", "Banner " + identifier},
          {"type", "banner"},
          {"banner_id", identifier},
          {"priority", 1},
          {"updated", updated},
          {"market_url", "market"},
          {"image_728x90", link}};
}

inline Dictionary videoOf(const std::string& identifier, std::uint64_t updated,
                          const std::string& iconLink, const std::string& videoLink) {
  return {{"engine", "eco_video"}, {"name", "Video " + identifier},
          {"type", "video"},       {"banner_id", identifier},
          {"priority", 2},         {"updated", updated},
          {"title", "Title"},      {"market_url", "market"},
          {"image", iconLink},     {"video_file_landscape", videoLink}};
}

inline Dictionary pageOf(const std::string& identifier, std::uint64_t updated,
                         const std::string& link) {
  return {{"engine", "eco_fs"}, {"name", "Page " + identifier},
          {"type", "page"},     {"banner_id", identifier},
          {"priority", 3},      {"updated", updated},
          {"html", link}};
}

/// A resource that needs no files.
inline Dictionary plainOf(const std::string& identifier, std::uint64_t updated) {
  return {{"engine", "eco_other"}, {"name", "Plain " + identifier},
          {"type", "plain"},       {"banner_id", identifier},
          {"priority", 0},         {"updated", updated}};
}

}  // namespace kiv::test
