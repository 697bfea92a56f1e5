#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "KivPlatform/KivRESTService/engine/TransferControls.h"

namespace kiv {

struct Download;

/// The downloads whose next request waits for the host's headers, in the order of the answers.
class AwaitedHeaders {
 public:
  /// Adds a download, and a question about it.
  void add(Download& download);
  /// Adds another question about each of them. Answers to former ones do not count any more.
  void askAgain();
  /// The questions that have been added since the last call.
  [[nodiscard]] std::vector<RequestQuestion> takeQuestions() {
    return std::exchange(questions_, {});
  }
  [[nodiscard]] bool hasQuestions() const noexcept { return !questions_.empty(); }

  /// Takes an answer, with its headers. The download if its request is refused, which the caller
  /// removes; otherwise nullptr, also for an answer that does not count.
  Download* take(RequestAnswer& answer);
  [[nodiscard]] bool hasAnswered() const noexcept { return !answered_.empty(); }
  /// Takes the download that was answered first. There has to be one.
  Download& takeAnswered();
  /// The downloads whose question waits for the host's queue. Those whose answer was postponed do
  /// not count.
  [[nodiscard]] std::size_t asking() const noexcept { return asking_.size(); }

  /// The number of downloads at that server whose answer was postponed and whose priority is lower.
  [[nodiscard]] std::size_t postponedBelow(std::uint64_t priority, const std::string& server) const;

  void remove(Download& download);
  /// Takes all downloads, and removes the questions.
  std::vector<Download*> takeAll();

 private:
  using Downloads = std::map<std::uint64_t, Download*>;  // by the ID of the attempt

  static Download* takeFrom(Downloads& downloads, const RequestAnswer& answer);

  std::vector<RequestQuestion> questions_;
  Downloads asking_;
  Downloads postponed_;
  std::vector<Download*> answered_;
};

}  // namespace kiv
