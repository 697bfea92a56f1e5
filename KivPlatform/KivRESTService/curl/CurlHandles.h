#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv {

// The handles of libcurl, whose own headers say no more of their types than "void".

struct EasyHandleDeleter {
  void operator()(void* handle) const noexcept;
};
struct HeaderListDeleter {
  void operator()(void* list) const noexcept;
};

/// One request. Belongs to one thread.
using EasyHandle = std::unique_ptr<void, EasyHandleDeleter>;
/// Headers that a request has beyond those that libcurl gives it.
using HeaderList = std::unique_ptr<void, HeaderListDeleter>;

/// A new handle; empty where memory or descriptors have run out. The library must be prepared.
EasyHandle makeEasyHandle();
/// A list with one header; empty where memory has run out.
HeaderList makeHeaderList(const std::string& header);

/// The requests that run together, and their open connections, which go with it. Belongs to one
/// thread.
class MultiHandle {
 public:
  /// Empty where memory or descriptors have run out. The library must be prepared.
  MultiHandle();
  MultiHandle(const MultiHandle&) = delete;
  MultiHandle& operator=(const MultiHandle&) = delete;
  ~MultiHandle();

  explicit operator bool() const noexcept { return handle_ != nullptr; }

  /// Has the request of an easy handle run; false where that failed.
  bool add(void* easyHandle);
  /// Ends the request, if it runs.
  void remove(void* easyHandle);

  enum class Woken { byRequests, byDescriptor };
  /// Returns when a request can be moved, when the descriptor can be read, or after that time.
  /// Nothing where libcurl itself failed, which it does for want of memory only.
  std::optional<Woken> wait(int descriptor, std::chrono::milliseconds longest);
  /// Moves the requests that can be moved; false as above.
  bool move();

  struct Ended {
    void* easyHandle;
    int result;  ///< libcurl's.
  };
  /// The requests that have ended since this was last called. They are still to be removed.
  std::vector<Ended> takeEnded();

 private:
  void* const handle_;
};

}  // namespace kiv
