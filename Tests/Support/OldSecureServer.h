#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/NginxServer.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv::test {

/// Runs `openssl s_server` on the loopback interface: HTTP/1.0 over TLS, without Content-Length. It
/// serves the files of its own temporary directory. The openssl tool must be installed.
class OldSecureServer {
 public:
  OldSecureServer();
  OldSecureServer(const OldSecureServer&) = delete;
  OldSecureServer& operator=(const OldSecureServer&) = delete;

  void addFile(const std::string& name, std::string_view contents) const;
  /// "https://127.0.0.1:port", followed by the path.
  [[nodiscard]] std::string url(std::string_view path) const;
  /// The certificate that a client must trust.
  [[nodiscard]] std::string certificatePath() const { return certificate_.certificate.string(); }

 private:
  [[nodiscard]] std::string output() const;

  TemporaryDirectory directory_;
  SelfSignedCertificate certificate_;
  std::unique_ptr<ChildProcess> process_;
  std::string port_;
};

}  // namespace kiv::test
