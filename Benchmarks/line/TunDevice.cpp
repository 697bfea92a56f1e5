#include "Benchmarks/line/TunDevice.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kiv::bench {

namespace {

constexpr const char* deviceName = "line";

ifreq requestFor(const char* device) {
  ifreq request{};
  std::strncpy(request.ifr_name, device, IFNAMSIZ - 1);
  return request;
}

void control(int descriptor, unsigned long operation, ifreq& request, const char* what) {
  if (::ioctl(descriptor, operation, &request) != 0) failWith(what);
}

void setAddress(int socket, unsigned long operation, const char* address) {
  ifreq request = requestFor(deviceName);
  sockaddr_in internet{};
  internet.sin_family = AF_INET;
  ::inet_pton(AF_INET, address, &internet.sin_addr);
  std::memcpy(&request.ifr_addr, &internet, sizeof internet);
  control(socket, operation, request, "an address");
}

void setUp(int socket, const char* device) {
  ifreq request = requestFor(device);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  control(socket, SIOCSIFFLAGS, request, device);
}

}  // namespace

void failWith(const std::string& call) {
  throw std::runtime_error(call + ": " + std::strerror(errno));
}

int openTunDevice(const char* address) {
  const int device = ::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (device < 0) failWith("/dev/net/tun");
  ifreq request = requestFor(deviceName);
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  control(device, TUNSETIFF, request, "TUNSETIFF");
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) failWith("socket");
  setAddress(socket, SIOCSIFADDR, address);
  setAddress(socket, SIOCSIFNETMASK, "255.255.255.252");
  setUp(socket, deviceName);
  setUp(socket, "lo");
  ::close(socket);
  return device;
}

}  // namespace kiv::bench
