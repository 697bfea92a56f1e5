#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace kiv {

struct Download;

/// The downloads that wait for a slot, ordered by how often they have yielded theirs (least first),
/// then by priority (highest first), then by age. Downloads with the same origins share a queue,
/// and only its first one is examined.
class WaitingDownloads {
 public:
  /// The download must live until it is removed or taken.
  void add(Download& download);
  void remove(Download& download);
  /// Takes the first download for which `mayStart` holds; nullptr if there is none. Only asks about
  /// the first download of each queue.
  Download* takeNext(const std::function<bool(Download&)>& mayStart);
  /// True if the predicate holds for the first download of some queue.
  [[nodiscard]] bool anyFirst(const std::function<bool(Download&)>& predicate) const;
  void clear() noexcept;
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  [[nodiscard]] std::size_t size() const noexcept { return count_; }

 private:
  struct Place {
    int timesYielded;
    std::uint64_t priority;
    std::uint64_t task;
    bool operator<(const Place& other) const noexcept;
  };
  using Line = std::map<Place, Download*>;

  static Place placeOf(const Download& download);
  static std::string lineOf(const Download& download);

  std::map<std::string, Line> lines_;
  std::size_t count_ = 0;
};

}  // namespace kiv
