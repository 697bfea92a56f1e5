#pragma once

#include <KivResource/KivResource.h>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ManualClock.h"

/// A client without a network, which answers from a table of the test's.
///
/// It asks the servers of a task as the client does: the request's own, then the mirrors, until one
/// answers with 200, or with 304 to the validators of the task. It does not retry, does not follow
/// redirects, and does not join tasks for the same URL. It answers when the test says so, by
/// answer(), and while it is not paused. Used on the thread of the test, and owned by a shared_ptr.
class FakeNetwork final : public KivRESTService, public std::enable_shared_from_this<FakeNetwork> {
 public:
  struct Answer {
    std::int64_t status = 200;
    std::string body = {};
    std::string entityTag = {};
    /// A transfer error instead of a response.
    std::optional<KivRESTServiceErrorCode> error = {};
    /// From the request to the end of the answer, by the clock.
    kiv::Timers::Time takes{0};
  };
  static Answer status(std::int64_t code) { return {.status = code}; }
  static Answer failure(KivRESTServiceErrorCode code) { return {.error = code}; }

  explicit FakeNetwork(std::shared_ptr<ManualClock> clock) : clock_(std::move(clock)) {}

  /// From now on the URL has that answer. A URL without one has the status 404.
  void setAnswer(const std::string& url, Answer answer) { answers_[url] = std::move(answer); }
  /// The same with the status 200.
  void serve(const std::string& url, std::string body, std::string entityTag = {}) {
    setAnswer(url, {.body = std::move(body), .entityTag = std::move(entityTag)});
  }
  /// Tasks whose URL ends so wait until it is released. Released one after the other, they are
  /// completed in that order.
  void hold(const std::string& urlEnd) { held_.push_back(urlEnd); }
  void release(const std::string& urlEnd) { std::erase(held_, urlEnd); }

  /// Adds a job to the queue that answers every task that waits for nothing else, the one of the
  /// largest priority first. False if there is none.
  bool answer();

  /// The URLs that were asked, in that order; the mirrors too.
  [[nodiscard]] const std::vector<std::string>& requests() const { return requests_; }
  /// Of all answers that had one.
  [[nodiscard]] std::size_t bodyBytes() const { return bodyBytes_; }

  void queue(std::shared_ptr<KivRESTServiceTask> task) override;
  [[nodiscard]] std::vector<std::shared_ptr<KivRESTServiceTask>> currentQueue() const override;
  void cancelAllTasks() override { waiting_.clear(); }

 private:
  struct Waiting {
    std::shared_ptr<KivRESTServiceTask> task;
    kiv::Timers::Time since;
  };

  [[nodiscard]] std::vector<Waiting> due() const;
  void answerDue();
  void end(const Waiting& waiting);
  [[nodiscard]] const Answer& answerOf(const std::string& url) const;
  /// Asks one server. True if the task has ended with its answer.
  bool ask(const kiv::URL& url, KivRESTServiceTask& task, KivRESTServiceMetrics& metrics);

  const std::shared_ptr<kiv::DispatchQueue> queue_ = kiv::DispatchQueue::current();
  const std::shared_ptr<ManualClock> clock_;
  std::map<std::string, Answer> answers_;
  std::vector<std::string> held_;
  std::vector<Waiting> waiting_;  ///< In the order of queuing.
  std::vector<std::string> requests_;
  std::size_t bodyBytes_ = 0;
};
