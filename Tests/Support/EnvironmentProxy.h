#pragma once

#include <cstdlib>
#include <string>

namespace kiv::test {

/// Sets a proxy for every server in the environment until the end of the scope.
class EnvironmentProxy {
 public:
  explicit EnvironmentProxy(const std::string& url) {
    setenv("http_proxy", url.c_str(), 1);
    unsetenv("no_proxy");
  }
  EnvironmentProxy(const EnvironmentProxy&) = delete;
  EnvironmentProxy& operator=(const EnvironmentProxy&) = delete;
  ~EnvironmentProxy() {
    unsetenv("http_proxy");
    setenv("no_proxy", "*", 1);
  }
};

}  // namespace kiv::test
