#pragma once

#include <cstddef>
#include <string>

namespace kiv::test {

/// A host name that the test program resolves itself instead of the system's resolver; no name
/// server is needed. Each object has a unique name.
///
///     const FakeHostName name(FakeHostName::Answer::noSuchName);
///     const Load load(client, {name.in(server.url("/a")), mirror.url("/a")});
///
/// Thread-safe.
class FakeHostName {
 public:
  enum class Answer {
    loopback,      ///< 127.0.0.1.
    twoAddresses,  ///< 127.0.0.1, then 203.0.113.7 (see FakeAddress).
    noSuchName,    ///< The name does not exist (NXDOMAIN).
    serverFails,   ///< The name server fails (SERVFAIL) or cannot be reached.
    silence,       ///< No answer until it is changed or the object is destroyed.
  };

  explicit FakeHostName(Answer answer);
  /// Waits for lookups in progress to end.
  ~FakeHostName();
  FakeHostName(const FakeHostName&) = delete;
  FakeHostName& operator=(const FakeHostName&) = delete;

  /// Sets the result of later lookups.
  void setAnswer(Answer answer);
  /// The URL of a loopback server with its address replaced by this name.
  [[nodiscard]] std::string in(std::string url) const;
  /// The number of lookups so far.
  [[nodiscard]] std::size_t lookUps() const;

 private:
  const std::string name_;
};

}  // namespace kiv::test
