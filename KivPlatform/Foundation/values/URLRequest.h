#pragma once

#include <string>
#include <utility>

#include "KivPlatform/Foundation/values/URL.h"

namespace kiv {

/// One HTTP request: a method and a URL. It carries no headers, no body and no time-out.
struct URLRequest {
  URL url;
  std::string httpMethod = "GET";

  explicit URLRequest(URL requestURL) : url(std::move(requestURL)) {}
};

}  // namespace kiv
