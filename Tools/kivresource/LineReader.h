#pragma once

#include <array>
#include <functional>
#include <string>
#include <thread>

namespace tool {

/// Reads a descriptor line by line on its own thread, so that neither the writer nor the main
/// thread is blocked.
class LineReader {
 public:
  /// `onLine` is called with each line without its newline, including an unterminated last line;
  /// `onEnd` is called once after the last line. Both are called on the reader's thread.
  LineReader(int descriptor, std::function<void(std::string line)> onLine,
             std::function<void()> onEnd);
  /// Stops reading immediately and joins the thread.
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

 private:
  void read();
  bool waitForBytes() const;
  void takeBytes(const char* bytes, std::size_t length);

  const int descriptor_;
  const std::function<void(std::string)> onLine_;
  const std::function<void()> onEnd_;
  std::string partialLine_;
  std::array<int, 2> stop_{-1, -1};
  std::thread thread_;
};

}  // namespace tool
