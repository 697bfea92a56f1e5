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

/// The downloads whose next request waits for the host to add headers. Those that have been
/// answered are taken in the order of the answers.
class AwaitedHeaders {
 public:
  /// Adds a download, and a question about it.
  void add(Download& download);
  /// Replaces every question by a new one: late answers to the old ones are ignored.
  void askAgain();
  /// The questions added since the last call.
  [[nodiscard]] std::vector<RequestQuestion> takeQuestions() {
    return std::exchange(questions_, {});
  }
  [[nodiscard]] bool hasQuestions() const noexcept { return !questions_.empty(); }

  /// Takes an answer with its headers. Returns the download if the host has refused its request
  /// (the caller then removes it), otherwise nullptr. Ignores answers to old questions.
  Download* take(RequestAnswer& answer);
  [[nodiscard]] bool hasAnswered() const noexcept { return !answered_.empty(); }
  /// Takes the download that was answered first. hasAnswered() must be true.
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
  using Downloads = std::map<std::uint64_t, Download*>;  // by downloadID()

  static Download* takeFrom(Downloads& downloads, const RequestAnswer& answer);

  std::vector<RequestQuestion> questions_;
  Downloads asking_;
  Downloads postponed_;
  std::vector<Download*> answered_;
};

}  // namespace kiv
