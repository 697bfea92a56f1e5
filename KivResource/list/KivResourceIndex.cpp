// A tree and no hash table, since servers choose the keys. A key shares its characters with the
// resource that it was taken from.

#include "KivResource/list/KivResourceIndex.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "KivPlatform/Foundation/files/Path.h"
#include "KivPlatform/Foundation/text/Unicode.h"
#include "KivResource/KivResourceConstants.h"
#include "KivResource/KivResourceObject.h"

namespace kiv {

namespace {

/// The name under which the file is stored. For the page of an archive it is the directory's, since
/// all such pages have the same name.
std::string_view storedName(std::string_view path) {
  const std::string_view name = path::lastPathComponent(path);
  if (name != KivResouceArchiveKey[1]) return name;
  return path::lastPathComponent(path::deletingLastPathComponent(path));
}

/// The field itself, even if valueForProperty() is overridden. The value shares its characters.
Value fieldOf(const KivResource& resource, std::string_view name) {
  return resource.KivResource::valueForProperty(name).value_or(nullptr);
}

}  // namespace

bool ResourceIndex::Order::operator()(const Entry& a, const Entry& b) const noexcept {
  const int order = a.key.stringView().compare(b.key.stringView());
  if (order != 0) return order < 0;
  if (a.resource != b.resource) return std::less<>()(a.resource, b.resource);
  return a.place < b.place;
}

bool ResourceIndex::Order::operator()(const Entry& a, const Start& b) const noexcept {
  const int order = a.key.stringView().compare(b.key);
  return order != 0 ? order < 0 : std::less<>()(a.resource, b.resource);
}

template <class Use>
void ResourceIndex::forEachKey(const KivResource& resource, const Use& use) const {
  if (aspect_ == Aspect::identifier) return use(fieldOf(resource, "resourceID"));
  if (aspect_ == Aspect::type) return use(fieldOf(resource, "type"));
  std::string buffer;
  for (const std::string& path : resource.useFilePaths())
    use(Value(keyOf(path, buffer)));
}

/// Inserts in order, so that no insertion needs a search.
ResourceIndex::ResourceIndex(Aspect aspect, const std::vector<std::shared_ptr<KivResource>>& list)
    : aspect_(aspect) {
  std::vector<Entry> entries;
  entries.reserve(list.size());
  for (Place place = 0; place < list.size(); ++place) {
    if (!list[place]) continue;
    const KivResource* const resource = list[place].get();
    forEachKey(*resource, [&](Value key) { entries.push_back({std::move(key), resource, place}); });
  }
  std::sort(entries.begin(), entries.end(), Order());
  for (Entry& entry : entries)
    entries_.insert(entries_.end(), std::move(entry));
}

void ResourceIndex::add(const KivResource& resource, Place place) {
  forEachKey(resource, [&](Value key) { entries_.insert({std::move(key), &resource, place}); });
}

void ResourceIndex::remove(const KivResource& resource) {
  forEachKey(resource, [&](const Value& key) {
    auto entry = entries_.lower_bound(Start{key.stringView(), &resource});
    while (entry != entries_.end() && entry->resource == &resource && entry->key == key)
      entry = entries_.erase(entry);
  });
}

std::string_view ResourceIndex::keyOf(std::string_view value, std::string& buffer) const {
  if (aspect_ != Aspect::fileName) return value;
  return buffer = unicode::foldedName(storedName(value));
}

ResourceIndex::Places ResourceIndex::places(std::string_view value) const {
  std::string buffer;
  const std::string_view key = keyOf(value, buffer);
  Places places;
  for (auto entry = entries_.lower_bound(Start{key});
       entry != entries_.end() && entry->key.stringView() == key; ++entry)
    places.push_back(entry->place);
  std::sort(places.begin(), places.end());
  return places;
}

ResourceIndex::Places ResourceIndex::places(std::string_view value,
                                            const KivResource& resource) const {
  std::string buffer;
  const std::string_view key = keyOf(value, buffer);
  Places places;
  for (auto entry = entries_.lower_bound(Start{key, &resource});
       entry != entries_.end() && entry->resource == &resource && entry->key.stringView() == key;
       ++entry)
    places.push_back(entry->place);
  return places;
}

}  // namespace kiv
