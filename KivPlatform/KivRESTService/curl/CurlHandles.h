#pragma once

#include <memory>
#include <string>

namespace kiv {

// The handles of libcurl, whose own headers say no more of their types than "void".

struct EasyHandleDeleter {
  void operator()(void* handle) const noexcept;
};
struct MultiHandleDeleter {
  void operator()(void* handle) const noexcept;
};
struct HeaderListDeleter {
  void operator()(void* list) const noexcept;
};

/// One request. Belongs to one thread.
using EasyHandle = std::unique_ptr<void, EasyHandleDeleter>;
/// The requests that run together, and their open connections. Belongs to one thread, but for
/// waking that thread up.
using MultiHandle = std::unique_ptr<void, MultiHandleDeleter>;
/// Headers that a request has beyond those that libcurl gives it.
using HeaderList = std::unique_ptr<void, HeaderListDeleter>;

/// A new handle; empty where memory or descriptors have run out. The library must be prepared.
EasyHandle makeEasyHandle();
MultiHandle makeMultiHandle();
/// A list with one header; empty where memory has run out.
HeaderList makeHeaderList(const std::string& header);

}  // namespace kiv
