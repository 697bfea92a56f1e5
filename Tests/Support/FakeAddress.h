#pragma once

#include <string>

namespace kiv::test {

/// A public IPv4 address that the test program redirects to its loopback servers: a connection to
/// it is made to 127.0.0.1, while the client still sees the public address. Nothing leaves the
/// machine.
///
///     const FakeAddress address("203.0.113.7");
///     const Load load(client, address.in(server.url("/a")));
///
/// Thread-safe. No two objects that exist at the same time may have the same address.
class FakeAddress {
 public:
  /// `address` is in dotted decimal notation.
  explicit FakeAddress(const std::string& address);
  ~FakeAddress();
  FakeAddress(const FakeAddress&) = delete;
  FakeAddress& operator=(const FakeAddress&) = delete;

  /// The URL of a loopback server with its host replaced by this address.
  [[nodiscard]] std::string in(std::string url) const;

 private:
  const std::string address_;
};

}  // namespace kiv::test
