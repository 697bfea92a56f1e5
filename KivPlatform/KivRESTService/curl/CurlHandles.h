#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv {

// Owners of libcurl's handles, which libcurl declares as void*.

struct EasyHandleDeleter {
  void operator()(void* handle) const noexcept;
};
struct HeaderListDeleter {
  void operator()(void* list) const noexcept;
};

/// An easy handle: one request. Used by one thread at a time.
using EasyHandle = std::unique_ptr<void, EasyHandleDeleter>;
/// Additional request headers.
using HeaderList = std::unique_ptr<void, HeaderListDeleter>;

/// A new handle; empty if memory or descriptors have run out. prepareCurlLibrary() must have
/// succeeded.
EasyHandle makeEasyHandle();
/// A list of these headers in libcurl's form; empty if there are none, or if memory has run out.
HeaderList makeHeaderList(const std::vector<std::string>& headers);

/// A multi handle: requests that run together, and their open connections. Used by one thread at a
/// time.
class MultiHandle {
 public:
  /// Empty if memory or descriptors have run out. prepareCurlLibrary() must have succeeded.
  MultiHandle();
  MultiHandle(const MultiHandle&) = delete;
  MultiHandle& operator=(const MultiHandle&) = delete;
  ~MultiHandle();

  explicit operator bool() const noexcept { return handle_ != nullptr; }

  /// Starts the request of an easy handle; false if that failed.
  bool add(void* easyHandle);
  /// Ends the request, if it is running.
  void remove(void* easyHandle);

  enum class Woken { byRequests, byDescriptor };
  /// Waits until a request can be moved, the descriptor is readable, or `longest` has passed.
  /// Nothing if libcurl failed, which happens only when memory has run out.
  std::optional<Woken> wait(int descriptor, std::chrono::milliseconds longest);
  /// Moves the requests as far as possible without waiting; false if libcurl failed.
  bool move();

  struct Ended {
    void* easyHandle;
    int result;  ///< A CURLcode.
  };
  /// The requests that have ended since the last call. The caller removes them with remove().
  std::vector<Ended> takeEnded();

 private:
  void* const handle_;
};

}  // namespace kiv
