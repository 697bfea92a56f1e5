#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivSession/kivsession.h"

namespace kiv::test {

constexpr int longestWait = 60'000;  // milliseconds

/// A session by the C interface, which the destructor closes.
class OpenedSession {
 public:
  /// `more` is added to the settings.
  explicit OpenedSession(const std::string& root, const std::string& more = {}) {
    char* message = nullptr;
    const std::string settings = R"({"root":")" + root + "\"" + more + "}";
    const int result = kivsession_open(settings.c_str(), &session_, &message);
    EXPECT_EQ(result, KIVSESSION_OK) << (message ? message : "no message");
    kivsession_free(message);
  }
  ~OpenedSession() {
    if (session_) {
      EXPECT_EQ(close(), KIVSESSION_OK);
    }
  }
  OpenedSession(const OpenedSession&) = delete;
  OpenedSession& operator=(const OpenedSession&) = delete;

  [[nodiscard]] kivsession* handle() const noexcept { return session_; }

  int close() { return kivsession_close(std::exchange(session_, nullptr)); }

  [[nodiscard]] int send(const std::string& call) const {
    return kivsession_send(session_, call.c_str());
  }

  /// The next line, or nullopt if none comes.
  [[nodiscard]] std::optional<std::string> receive(int timeout = longestWait) const {
    char* line = nullptr;
    if (kivsession_receive(session_, timeout, &line) != KIVSESSION_OK) return std::nullopt;
    std::string text = line;
    kivsession_free(line);
    return text;
  }

  /// Receives lines up to the answer with that tag, which is the last of them.
  [[nodiscard]] std::vector<std::string> receiveUpTo(const std::string& tag) const {
    std::vector<std::string> lines;
    const std::string end = R"(,"tag":")" + tag + "\"}";
    do {
      auto line = receive();
      EXPECT_TRUE(line) << "there is no answer with the tag " << tag;
      if (!line) return lines;
      lines.push_back(std::move(*line));
    } while (!lines.back().ends_with(end));
    return lines;
  }

  /// That the session still answers.
  [[nodiscard]] bool answers() const {
    static int number = 0;
    const std::string tag = "alive" + std::to_string(++number);
    return send(R"({"call":"state","tag":")" + tag + "\"}") == KIVSESSION_OK &&
           receiveUpTo(tag).back().starts_with(R"({"result":"state",)");
  }

 private:
  kivsession* session_ = nullptr;
};

}  // namespace kiv::test
