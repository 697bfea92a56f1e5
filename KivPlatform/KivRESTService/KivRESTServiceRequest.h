#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/URL.h"
#include "KivPlatform/KivRESTService/KivRESTServiceHeader.h"

/// A request that a client is about to send. It waits for the host's answer: send() or refuse().
///
/// Copies refer to the same request. A host may keep one and answer later, from any thread. Only
/// the first answer counts, and none does after the task was cancelled or the client destroyed. If
/// the last copy is destroyed without an answer, the request is refused.
class KIV_EXPORT KivRESTServiceRequest {
 public:
  using Headers = std::vector<KivRESTServiceHeader>;
  /// Takes the answer: the headers; or, for a refusal, nothing and the reason, which is empty if
  /// the host itself refused.
  using AnswerHandler = std::function<void(std::optional<Headers> headers, std::string refusal)>;

  /// For the client, and for a host's tests. `answered` is called once, on the thread that answers
  /// or destroys the last copy, and must not throw.
  KivRESTServiceRequest(kiv::URL url, int tries, int redirects, AnswerHandler answered);

  /// The URL that is about to be requested: the task's own, a mirror's, or that of a redirect.
  [[nodiscard]] const kiv::URL& url() const noexcept;
  /// The number of attempts at the file that have begun, including this one; at least 1.
  [[nodiscard]] int tries() const noexcept;
  /// The number of redirects that this attempt has followed; 0 for its first request.
  [[nodiscard]] int redirects() const noexcept;

  /// Sends the request with these headers, in addition to those of the client. "Accept" and
  /// "User-Agent" replace the client's.
  ///
  /// Fails if a header is not allowed; the request is then refused with that error. At most 32
  /// headers with 32 KiB in total are allowed. A name is a token (RFC 9110, 5.6.2). A value has no
  /// control character, and no space at its start or end; it may be empty. Headers that concern the
  /// connection, the coding or range of the response, or conditions belong to the client: Host,
  /// Connection, Transfer-Encoding, Accept-Encoding, Range, If-None-Match and the like. The error
  /// contains neither a name nor a value.
  kiv::Status send(Headers headers = {}) const;
  /// Refuses the request: the attempt fails with the error refusedRequest. The next mirror is
  /// tried, but not the same server again.
  void refuse() const;

 private:
  class State;
  std::shared_ptr<const State> state_;
};
