#include "KivResource/files/KivResourceCachePlace.h"

#include <algorithm>
#include <utility>

#include "KivPlatform/Foundation/Mutex.h"

namespace kiv {

namespace {

/// Never destroyed: other threads may still look for files while the process exits.
struct Places {
  Mutex mutex;
  std::vector<std::weak_ptr<const CachePlace>> all KIV_GUARDED_BY(mutex);
};

Places& places() {
  static auto& shared = *new Places;
  return shared;
}

std::vector<std::shared_ptr<const CachePlace>> openPlaces() {
  std::vector<std::shared_ptr<const CachePlace>> open;
  const MutexLock lock(places().mutex);
  for (const auto& place : places().all) {
    if (auto held = place.lock()) open.push_back(std::move(held));
  }
  return open;
}

bool isTrueInCache(const CachePlace* place, const std::function<bool()>& function) {
  const CacheInUse use(place);
  return function();
}

constinit thread_local const CacheInUse* innermost = nullptr;

}  // namespace

std::shared_ptr<const CachePlace> CachePlace::open(CachePlace place) {
  auto opened = std::make_shared<const CachePlace>(std::move(place));
  const MutexLock lock(places().mutex);
  std::erase_if(places().all, [](const auto& other) { return other.expired(); });
  places().all.push_back(opened);
  return opened;
}

CacheInUse::CacheInUse(const CachePlace* place) noexcept
    : former_(std::exchange(innermost, this)),
      place_(place),
      storage_(place ? &place->storage : nullptr) {}

CacheInUse::~CacheInUse() {
  innermost = former_;
}

bool CacheInUse::isKnown() noexcept {
  return innermost != nullptr;
}

const CachePlace* CacheInUse::place() noexcept {
  return innermost ? innermost->place_ : nullptr;
}

bool CacheInUse::isTrueForAny(const std::function<bool()>& function) {
  if (isTrueInCache(nullptr, function)) return true;
  const auto places = openPlaces();
  return std::any_of(places.begin(), places.end(),
                     [&](const auto& place) { return isTrueInCache(place.get(), function); });
}

}  // namespace kiv
