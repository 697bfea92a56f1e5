#include "Tests/Support/FakeAddress.h"

#include <arpa/inet.h>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <set>
#include <sys/socket.h>

namespace kiv::test {

namespace {

/// The addresses that are currently faked, in network byte order, and the sockets connected to
/// them. Never destroyed: threads may still run after the last test.
class Addresses {
 public:
  static Addresses& shared() {
    static auto& addresses = *new Addresses;
    return addresses;
  }

  void add(in_addr_t address) {
    const std::lock_guard lock(mutex_);
    addresses_.insert(address);
  }
  void remove(in_addr_t address) {
    const std::lock_guard lock(mutex_);
    addresses_.erase(address);
    std::erase_if(connected_, [&](const auto& entry) { return entry.second == address; });
  }

  /// Called before the socket is connected. Returns true if the address is a faked one.
  bool noteConnect(int socket, in_addr_t address) {
    const std::lock_guard lock(mutex_);
    connected_.erase(socket);
    if (!addresses_.contains(address)) return false;
    connected_.emplace(socket, address);
    return true;
  }
  std::optional<in_addr_t> peerOf(int socket) {
    const std::lock_guard lock(mutex_);
    const auto found = connected_.find(socket);
    return found == connected_.end() ? std::nullopt : std::optional(found->second);
  }

 private:
  std::mutex mutex_;
  std::set<in_addr_t> addresses_;
  std::map<int, in_addr_t> connected_;
};

in_addr_t numberOf(const std::string& address) {
  in_addr number{};
  inet_pton(AF_INET, address.c_str(), &number);
  return number.s_addr;
}

}  // namespace

FakeAddress::FakeAddress(const std::string& address) : address_(address) {
  Addresses::shared().add(numberOf(address_));
}

FakeAddress::~FakeAddress() {
  Addresses::shared().remove(numberOf(address_));
}

std::string FakeAddress::in(std::string url) const {
  const std::string address = "127.0.0.1";
  return url.replace(url.find(address), address.size(), address_);
}

}  // namespace kiv::test

// A function that the program defines replaces that of the C library, also in the shared libraries
// the program is linked with.
extern "C" __attribute__((visibility("default"))) int connect(int socket, const sockaddr* address,
                                                              socklen_t length) {
  static const auto systems = reinterpret_cast<decltype(&connect)>(dlsym(RTLD_NEXT, "connect"));
  sockaddr_in target{};
  if (address->sa_family == AF_INET && length >= sizeof target) {
    std::memcpy(&target, address, sizeof target);
  }
  const bool isFaked = kiv::test::Addresses::shared().noteConnect(socket, target.sin_addr.s_addr);
  if (!isFaked) return systems(socket, address, length);
  target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return systems(socket, reinterpret_cast<const sockaddr*>(&target), sizeof target);
}

extern "C" __attribute__((visibility("default"))) int getpeername(int socket, sockaddr* address,
                                                                  socklen_t* length) {
  static const auto systems =
      reinterpret_cast<decltype(&getpeername)>(dlsym(RTLD_NEXT, "getpeername"));
  const int result = systems(socket, address, length);
  const auto faked = kiv::test::Addresses::shared().peerOf(socket);
  if (result == 0 && faked && address->sa_family == AF_INET) {
    reinterpret_cast<sockaddr_in*>(address)->sin_addr.s_addr = *faked;
  }
  return result;
}
