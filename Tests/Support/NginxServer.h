#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "Tests/Support/ChildProcess.h"

namespace kiv::test {

/// A self-signed certificate for 127.0.0.1 and localhost, generated for each test.
struct SelfSignedCertificate {
  enum class Validity { now, expired };

  /// Generates the files in `directory`. Aborts the test program if the openssl tool is not
  /// installed.
  explicit SelfSignedCertificate(const std::filesystem::path& directory,
                                 Validity validity = Validity::now);
  std::filesystem::path certificate;
  std::filesystem::path key;
};

/// Runs nginx on the loopback interface, on one port for http and one for https. It serves the
/// files of its own temporary directory. nginx must be installed: without it the tests fail.
///
/// nginx inherits sockets that already listen, so the test neither guesses a port nor waits for
/// nginx to start.
class NginxServer {
 public:
  /// `locations` is inserted into the server block of the nginx configuration. The test fails if
  /// nginx cannot be started.
  explicit NginxServer(const std::string& locations = {}, SelfSignedCertificate::Validity validity =
                                                              SelfSignedCertificate::Validity::now);
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  /// Writes a file below the document root.
  void addFile(const std::string& name, std::string_view contents) const;
  /// "http://127.0.0.1:port" or "https://127.0.0.1:port", followed by the path.
  [[nodiscard]] std::string url(std::string_view path = {}) const;
  [[nodiscard]] std::string secureURL(std::string_view path = {}) const;
  /// The certificate that a client must trust for https.
  [[nodiscard]] std::string certificatePath() const { return certificate_.certificate.string(); }
  /// Shuts nginx down gracefully and returns the lines of its access log, one for each request.
  std::string stopAndTakeLog();

 private:
  void stop(int signal);
  void writeConfiguration(const std::string& locations) const;

  std::filesystem::path directory_;
  SelfSignedCertificate certificate_;
  int port_ = 0;
  int securePort_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace kiv::test
