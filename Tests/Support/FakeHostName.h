#pragma once

#include <cstddef>
#include <string>

namespace kiv::test {

/// A host name that the test program answers for itself, in place of the system's resolver: no name
/// server is asked, and none is needed. Each object has a name of its own.
///
///     const FakeHostName name(FakeHostName::Answer::noSuchName);
///     const Load load(client, {name.in(server.url("/a")), mirror.url("/a")});
///
/// May be used from any thread.
class FakeHostName {
 public:
  enum class Answer {
    loopback,      ///< 127.0.0.1.
    twoAddresses,  ///< 127.0.0.1, and after it 203.0.113.7 (see FakeAddress).
    noSuchName,    ///< As a name server says that the name does not exist (NXDOMAIN).
    serverFails,   ///< As a name server that cannot tell (SERVFAIL), or none that can be asked.
    silence,       ///< None, until the answer is another one or the object is destroyed.
  };

  explicit FakeHostName(Answer answer);
  /// Returns when nobody waits for an answer any more.
  ~FakeHostName();
  FakeHostName(const FakeHostName&) = delete;
  FakeHostName& operator=(const FakeHostName&) = delete;

  /// What the name comes to from now on.
  void setAnswer(Answer answer);
  /// The URL of a server on the loopback interface, with this name in place of the address.
  [[nodiscard]] std::string in(std::string url) const;
  /// How often the name has been looked up so far.
  [[nodiscard]] std::size_t lookUps() const;

 private:
  const std::string name_;
};

}  // namespace kiv::test
