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
/// Copies stand for the same request. A host may keep one and answer later, from any thread. The
/// first answer counts; further ones have no effect, nor has one that comes after the task was
/// cancelled or the client destroyed. If the last copy is destroyed without an answer, the request
/// is refused.
class KIV_EXPORT KivRESTServiceRequest {
 public:
  using Headers = std::vector<KivRESTServiceHeader>;
  /// Takes the answer: the headers, or nothing and why not, in words. No words: the host refuses.
  using AnswerHandler = std::function<void(std::optional<Headers> headers, std::string refusal)>;

  /// For the client, and for a host's tests. `answered` is called once, on the thread that answers
  /// or destroys the last copy, and must not throw.
  KivRESTServiceRequest(kiv::URL url, int tries, int redirects, AnswerHandler answered);

  /// The URL that is about to be requested, of the request's own server, a mirror, or a redirect.
  [[nodiscard]] const kiv::URL& url() const noexcept;
  /// The attempts at the file that have begun, with this one; 1 or more.
  [[nodiscard]] int tries() const noexcept;
  /// The redirects that this attempt has followed; 0 for its first request.
  [[nodiscard]] int redirects() const noexcept;

  /// Sends the request with these headers, beside those of the client. "Accept" and "User-Agent"
  /// replace the client's.
  ///
  /// Fails if a header may not be added; the request is then refused with that error. At most 32
  /// headers with 32 KiB in all are taken. A name is a token (RFC 9110, 5.6.2). A value has no
  /// control character, and no space at its start or end; it may be empty. The client alone decides
  /// on the connection, the form and the range of the response, and its conditions: Host,
  /// Connection, Transfer-Encoding, Accept-Encoding, Range, If-None-Match and the like. The error
  /// holds neither a name nor a value.
  kiv::Status send(Headers headers = {}) const;
  /// Does not send it: the attempt fails with the error refusedRequest. The next mirror is tried,
  /// but not the same server again.
  void refuse() const;

 private:
  class State;
  std::shared_ptr<const State> state_;
};
