#pragma once

#include <string>

#include "Tests/Support/LoopbackServer.h"

namespace kiv::test {

/// The N of "Range: bytes=N-"; 0 if there is no such header.
inline std::size_t firstByteAsked(const Request& request) {
  const auto range = request.header("Range");
  return range ? std::stoul(range->substr(range->find('=') + 1)) : 0;
}

/// The response of a correct server: the rest of the body if it is requested and If-Range matches,
/// otherwise the whole body.
inline Response rangeResponse(const Request& request, const std::string& body,
                              const std::string& tag) {
  const std::size_t first = firstByteAsked(request);
  const bool isWhole = first == 0 || request.header("If-Range") != tag;
  if (isWhole) return Response::ok(body).header("ETag", tag);
  if (first >= body.size()) return Response::status(416);
  const auto size = std::to_string(body.size());
  return Response::status(206, body.substr(first))
      .header("Content-Range",
              "bytes " + std::to_string(first) + "-" + std::to_string(body.size() - 1) + "/" + size)
      .header("ETag", tag);
}

/// Bytes without a repeating pattern, so that a wrong offset is detected.
inline std::string patternedBytes(std::size_t size, unsigned seed = 1) {
  std::string bytes;
  bytes.reserve(size + 16);
  while (bytes.size() < size)
    bytes += std::to_string(seed++ * 2654435761U) + ",";
  bytes.resize(size);
  return bytes;
}

}  // namespace kiv::test
