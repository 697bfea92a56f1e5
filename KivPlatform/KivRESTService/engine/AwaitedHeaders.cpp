// Questions about a task are numbered, and only an answer to the latest one counts: the host may
// still hold an earlier question about the same task.

#include "KivPlatform/KivRESTService/engine/AwaitedHeaders.h"

#include <algorithm>

#include "KivPlatform/KivRESTService/curl/Transfer.h"
#include "KivPlatform/KivRESTService/engine/Download.h"

namespace kiv {

void AwaitedHeaders::add(Download& download) {
  download.headers.clear();
  const Transfer* const transfer = download.transfer.get();
  questions_.push_back({.task = download.downloadID(),
                        .number = ++download.lastQuestion,
                        .url = transfer ? transfer->url() : download.url(),
                        .tries = download.metrics.tries + (transfer ? 0 : 1),
                        .redirects = transfer ? transfer->redirects() : 0});
  asking_.emplace(download.downloadID(), &download);
}

void AwaitedHeaders::askAgain() {
  for (Download* const download : takeAll())
    add(*download);
}

Download* AwaitedHeaders::take(RequestAnswer& answer) {
  Download* download = takeFrom(asking_, answer);
  if (answer.isPostponed) {
    if (download) postponed_.emplace(answer.task, download);
    return nullptr;
  }
  if (!download) download = takeFrom(postponed_, answer);
  if (!download) return nullptr;
  if (!answer.headers) return download;
  download->headers = std::move(*answer.headers);
  answered_.push_back(download);
  return nullptr;
}

Download* AwaitedHeaders::takeFrom(Downloads& downloads, const RequestAnswer& answer) {
  const auto place = downloads.find(answer.task);
  if (place == downloads.end() || place->second->lastQuestion != answer.number) return nullptr;
  return downloads.extract(place).mapped();
}

Download& AwaitedHeaders::takeAnswered() {
  Download& first = *answered_.front();
  answered_.erase(answered_.begin());
  return first;
}

std::size_t AwaitedHeaders::postponedBelow(std::uint64_t priority,
                                           const std::string& server) const {
  const auto isCounted = [&](const auto& entry) {
    const Download& download = *entry.second;
    return download.priority < priority && download.servers[download.server] == server;
  };
  return static_cast<std::size_t>(std::count_if(postponed_.begin(), postponed_.end(), isCounted));
}

void AwaitedHeaders::remove(Download& download) {
  asking_.erase(download.downloadID());
  postponed_.erase(download.downloadID());
  std::erase(answered_, &download);
}

std::vector<Download*> AwaitedHeaders::takeAll() {
  questions_.clear();
  auto all = std::exchange(answered_, {});
  for (const Downloads* const downloads : {&asking_, &postponed_}) {
    for (const auto& [task, download] : *downloads)
      all.push_back(download);
  }
  asking_.clear();
  postponed_.clear();
  return all;
}

}  // namespace kiv
