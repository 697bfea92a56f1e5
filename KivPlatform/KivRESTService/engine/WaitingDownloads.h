#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

struct Download;

/// The downloads that wait for a free place: those that have given way less often come first, among
/// these the largest priority, and among equals the one that was queued first. Those whose servers
/// are the same stand in one line, so that a busy server costs a look at one of them and not at
/// each.
class KIV_EXPORT WaitingDownloads {
 public:
  /// The download must live until it is taken out.
  void add(Download& download);
  void remove(Download& download);
  /// Takes out the one that comes next of those that may start; nullptr where none may.
  Download* takeNext(const std::function<bool(Download&)>& mayStart);
  /// True where the predicate holds for the first of a line.
  [[nodiscard]] bool anyFirst(const std::function<bool(Download&)>& predicate) const;
  void clear() noexcept;
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  [[nodiscard]] std::size_t size() const noexcept { return count_; }

 private:
  struct Place {
    int timesGivenWay;
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
