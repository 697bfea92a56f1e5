#pragma once

#include <string>

namespace kiv::test {

/// An address of the public Internet behind which the test program has its loopback servers: what
/// is connected to it is connected to 127.0.0.1, while the client sees the address itself. Nothing
/// leaves the machine.
///
///     const FakeAddress address("203.0.113.7");
///     const Load load(client, address.in(server.url("/a")));
///
/// May be used from any thread. No two objects at one time have the same address.
class FakeAddress {
 public:
  /// An IPv4 address in its usual form.
  explicit FakeAddress(const std::string& address);
  ~FakeAddress();
  FakeAddress(const FakeAddress&) = delete;
  FakeAddress& operator=(const FakeAddress&) = delete;

  /// The URL of a server on the loopback interface, with this address in place of its own.
  [[nodiscard]] std::string in(std::string url) const;

 private:
  const std::string address_;
};

}  // namespace kiv::test
