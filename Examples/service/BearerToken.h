#pragma once

#include <KivResource/KivResource.h>
#include <string>
#include <vector>

/// The token in a file that an agent of the administrator's rotates. It goes into the header
/// "Authorization" of requests to certain origins, and nowhere else: never into a log.
///
/// To be used on one queue, that of the clients.
class BearerToken {
 public:
  /// `path` may be empty: then all requests are sent without a token.
  BearerToken(std::string path, std::vector<std::string> origins);

  /// Answers the request. Redirects are asked about too, so that another origin does not get the
  /// token of the first one. The file is read for each request that gets it, since it is small, and
  /// the time of its last change cannot tell two quick changes apart. While it is missing or
  /// unusable, the token that was read last is used; until one was read, requests that need it are
  /// refused.
  void answer(const KivRESTServiceRequest& request);

 private:
  [[nodiscard]] bool mayGoTo(const kiv::URL& url) const;
  void readAgain();
  void note(const std::string& state);

  const std::string path_;
  const std::vector<std::string> origins_;
  std::string token_;
  std::string state_;  ///< What the log was told last, so that it is not told for each request.
};
