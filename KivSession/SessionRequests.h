#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"

namespace kiv::session {

/// What the program decides for the clients of a session: whether transfers may start, and what is
/// added to each request. As long as it decides nothing, the clients have no handlers. Used on the
/// main queue, which is also that of the clients.
class SessionRequests : public std::enable_shared_from_this<SessionRequests> {
 public:
  using Headers = KivRESTServiceRequest::Headers;
  /// Tells the program that a request waits for its answer.
  using Announcement = std::function<void(std::uint64_t number, const URL& url)>;

  explicit SessionRequests(Announcement announce) : announce_(std::move(announce)) {}

  /// Applies the decisions to one more client, now and later. To be called once for each client;
  /// the session does not hold it. Nullptr is ignored.
  void equip(const std::shared_ptr<KivRESTService>& client);

  /// Whether requests are announced and wait. Without that, those that wait are sent as they are.
  void setAnswering(bool isAnswering);
  /// Sends a request that waits, or fails and says why. After an invalid header it waits on.
  [[nodiscard]] Status send(std::uint64_t number, const Headers& headers);
  /// Refuses a request that waits, or fails and says why.
  [[nodiscard]] Status refuse(std::uint64_t number);
  /// To be called after whatever may have ended the wait of requests in a client. Those that wait
  /// now are void; the clients ask again for the ones that they still want to send.
  void askAgain();
  /// Nobody can answer any more: refuses the requests that wait and those that follow.
  void endAnswers();

  /// Whether transfers may start. Those that run go on.
  void allowTransfers(bool areAllowed);
  [[nodiscard]] bool allowsTransfers() const noexcept { return allowsTransfers_; }

 private:
  [[nodiscard]] std::vector<std::shared_ptr<KivRESTService>> clients();
  void setHandler(KivRESTService& client);
  void replaceHandlers();
  void setCondition(KivRESTService& client) const;
  void take(const KivRESTServiceRequest& request);
  /// Why the request cannot be answered.
  [[nodiscard]] Status statusOf(std::uint64_t number) const;
  KivRESTServiceRequest remove(std::uint64_t number);

  const Announcement announce_;
  std::vector<std::weak_ptr<KivRESTService>> clients_;
  bool isAnswering_ = false;
  bool haveAnswersEnded_ = false;
  bool allowsTransfers_ = true;
  std::map<std::uint64_t, KivRESTServiceRequest> waiting_;
  /// One for each number so far, from 1; false too for a request that waits.
  std::vector<bool> wereAnswered_;
};

}  // namespace kiv::session
