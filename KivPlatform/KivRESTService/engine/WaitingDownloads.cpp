// A pass may queue a hundred thousand files of one server, and a scan of all of them for each free
// slot would be quadratic. Downloads with the same origins can start at about the same time, so the
// first of each queue is enough.

#include "KivPlatform/KivRESTService/engine/WaitingDownloads.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/engine/Download.h"

namespace kiv {

bool WaitingDownloads::Place::operator<(const Place& other) const noexcept {
  if (timesYielded != other.timesYielded) return timesYielded < other.timesYielded;
  if (priority != other.priority) return priority > other.priority;
  return task < other.task;
}

WaitingDownloads::Place WaitingDownloads::placeOf(const Download& download) {
  return {download.metrics.timesYielded, download.priority, download.tasks.front()};
}

std::string WaitingDownloads::lineOf(const Download& download) {
  std::string line;
  for (const auto& server : download.servers)
    line.append(server).append(" ");
  return line;
}

void WaitingDownloads::add(Download& download) {
  lines_[lineOf(download)].emplace(placeOf(download), &download);
  ++count_;
}

void WaitingDownloads::remove(Download& download) {
  const auto line = lines_.find(lineOf(download));
  if (line == lines_.end()) return;
  count_ -= line->second.erase(placeOf(download));
  if (line->second.empty()) lines_.erase(line);
}

Download* WaitingDownloads::takeNext(const std::function<bool(Download&)>& mayStart) {
  Line::value_type* best = nullptr;
  for (auto& [servers, line] : lines_) {
    auto& first = *line.begin();
    if ((!best || first.first < best->first) && mayStart(*first.second)) best = &first;
  }
  if (!best) return nullptr;
  Download* const download = best->second;
  remove(*download);
  return download;
}

bool WaitingDownloads::anyFirst(const std::function<bool(Download&)>& predicate) const {
  return std::any_of(lines_.begin(), lines_.end(),
                     [&](const auto& entry) { return predicate(*entry.second.begin()->second); });
}

void WaitingDownloads::clear() noexcept {
  lines_.clear();
  count_ = 0;
}

}  // namespace kiv
