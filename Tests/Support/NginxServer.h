#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "Tests/Support/ChildProcess.h"

namespace kiv::test {

/// A certificate for 127.0.0.1 and localhost that signs itself, made anew for each test.
struct SelfSignedCertificate {
  enum class Validity { now, expired };

  /// Made in that directory. Ends the test program where the openssl tool is missing.
  explicit SelfSignedCertificate(const std::filesystem::path& directory,
                                 Validity validity = Validity::now);
  std::filesystem::path certificate;
  std::filesystem::path key;
};

/// A real web server on the loopback interface, once over http and once over https, with the files
/// of a temporary directory of its own. It must be installed: without it the tests fail.
///
/// It takes over sockets that listen already, so that there is neither a port to guess nor a start
/// to wait for.
class NginxServer {
 public:
  /// `locations` is text in the server's own language that goes into its server block. The test
  /// fails if the server cannot be started.
  explicit NginxServer(const std::string& locations = {}, SelfSignedCertificate::Validity validity =
                                                              SelfSignedCertificate::Validity::now);
  ~NginxServer();
  NginxServer(const NginxServer&) = delete;
  NginxServer& operator=(const NginxServer&) = delete;

  /// Puts a file under the root.
  void addFile(const std::string& name, std::string_view contents) const;
  /// "http://127.0.0.1:port", followed by the path; "https" likewise, with its own port.
  [[nodiscard]] std::string url(std::string_view path = {}) const;
  [[nodiscard]] std::string secureURL(std::string_view path = {}) const;
  /// The certificate that a client must trust for https.
  [[nodiscard]] std::string certificatePath() const { return certificate_.certificate.string(); }
  /// Stops the server gently and answers the lines of its access log, one for each request.
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
