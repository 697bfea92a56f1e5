#pragma once

#include <string>

namespace kiv::bench {

/// Throws a std::runtime_error with the call that failed and the system's error.
[[noreturn]] void failWith(const std::string& call);

/// Creates a TUN device with that address, in a network of four addresses, in the network namespace
/// of the calling thread, and sets it and the loopback device up. Returns the descriptor by which
/// its packets are read and written without blocking. The device lives as long as it.
int openTunDevice(const char* address);

}  // namespace kiv::bench
